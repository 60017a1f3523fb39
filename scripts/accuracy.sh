#!/usr/bin/env bash
# Prints the end-point error of the complete method (default parameters) on
# every real frame pair with ground truth, as the rows of
# tests/accuracy_table.tsv:
#   scripts/accuracy.sh [build dir (default build)] [data dir]
# The data dir defaults to ../shared/data/flow beside the repository; each
# pair is a folder holding frame1.ppm, frame2.ppm and gt.flo.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
data=${2:-../shared/data/flow}
if [ ! -d "$data" ]; then
  echo "accuracy: no data folder $data" >&2
  exit 1
fi
cmake --build "$build" --target vemo-flow vemo-eval >/dev/null
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
printf '# pair\twidth\theight\tepe\n'
for dir in "$data"/*/; do
  pair=$(basename "$dir")
  [ -f "$dir/frame1.ppm" ] && [ -f "$dir/frame2.ppm" ] && [ -f "$dir/gt.flo" ] || continue
  "$build/vemo-flow" -q "$dir/frame1.ppm" "$dir/frame2.ppm" -o "$scratch/$pair.flo"
  json=$("$build/vemo-eval" --json "$scratch/$pair.flo" "$dir/gt.flo")
  python3 -c 'import json,sys; m=json.loads(sys.argv[2]); print("%s\t%d\t%d\t%.4f" % (sys.argv[1], m["width"], m["height"], m["epe"]))' "$pair" "$json"
done
