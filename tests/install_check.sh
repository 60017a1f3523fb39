#!/usr/bin/env bash
# Installs vemo from BUILD_DIR into a temporary prefix, builds the two
# example projects against it with a plain find_package, runs them on a
# generated pair and a generated sequence, and compares their flows with the
# vemo program's .flo bit for bit.
#   install_check.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
src=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
# Nothing internal is installed: only the public headers.
if find "$work/prefix/include" -type f ! -path '*/include/vemo/*.hpp' | grep -q .; then
  echo "install_check: unexpected files among the installed headers:" >&2
  find "$work/prefix/include" -type f ! -path '*/include/vemo/*.hpp' >&2
  exit 1
fi

for example in pair_to_flo folder_loop; do
  cmake -S "$src/examples/$example" -B "$work/$example" -DCMAKE_PREFIX_PATH="$work/prefix" \
        -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$work/$example" -j 2 >/dev/null
done

cd "$work"
mkdir -p pair
"$build/vemo-synth" pair 2.5 1.5 96 72 >/dev/null
(cd pair && "$build/vemo" frame1.ppm frame2.ppm >/dev/null)
VEMO_DEVICE=cpu "$work/pair_to_flo/pair_to_flo" pair/frame1.ppm pair/frame2.ppm pair/example.flo pair/example.png
cmp pair/frame1.ppmVEMO.flo pair/example.flo

mkdir -p seq flows
cp pair/frame1.ppm seq/00000.ppm
cp pair/frame2.ppm seq/00001.ppm
cp pair/frame1.ppm seq/00002.ppm
VEMO_DEVICE=cpu "$work/folder_loop/folder_loop" 'seq/%05d.ppm' flows
cmp pair/frame1.ppmVEMO.flo flows/00000.flo
test -s flows/00001.flo
echo "install_check: both examples built against the installed package and match the vemo program bit for bit"
