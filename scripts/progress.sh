# Sourced by the scripts: runs a long step with its output in a log file and
# a progress line every 15 s, so that a slow step is never silent.
#   long_step LABEL LOG COMMAND...
# prints "LABEL: 37 of 120 compiled, 1 min 15 s" while COMMAND runs (counts
# from the "[37/120]" lines of ninja or the "[ 30%]" lines of make in LOG),
# then "LABEL: done in 95 s"; on failure the end of LOG and COMMAND's status.

long_step() {
  local label=$1 log=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  local start=$SECONDS
  "$@" >"$log" 2>&1 &
  local pid=$! waited=0
  while kill -0 "$pid" 2>/dev/null; do
    sleep 1
    waited=$((waited + 1))
    if [ $((waited % 15)) -eq 0 ]; then
      local where
      where=$(grep -oE '^ *\[ *[0-9]+(/[0-9]+|%)\]' "$log" | tail -1 | tr -d ' []' || true)
      case "$where" in
        */*) where="${where%/*} of ${where#*/} compiled, " ;;
        *%) where="$where built, " ;;
        *) where="" ;;
      esac
      local elapsed=$((SECONDS - start))
      echo "$label: ${where}$((elapsed / 60)) min $((elapsed % 60)) s"
    fi
  done
  local status=0
  wait "$pid" || status=$?
  if [ "$status" -ne 0 ]; then
    echo "$label: FAILED (status $status); the end of $log:"
    tail -n 40 "$log"
    return "$status"
  fi
  echo "$label: done in $((SECONDS - start)) s"
}
