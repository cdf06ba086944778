# Sourced by the scripts (from the repository's root): each step prints one
# line and sends its output to out/logs/NAME.log, shown only when it fails.

# step NAME DESCRIPTION COMMAND...
step() {
  local name=$1 what=$2 log=out/logs/$1.log
  shift 2
  mkdir -p out/logs
  echo "-- $what"
  if ! "$@" >"$log" 2>&1; then
    tail -n 80 "$log"
    echo "FAILED: $what (whole output in $log)" >&2
    exit 1
  fi
}

# run_ctest NAME BUILD_DIR: the suite's summary line, or its failures in full.
run_ctest() {
  local log=out/logs/$1.log
  mkdir -p out/logs
  if ! ctest --test-dir "$2" --output-on-failure -j"$(nproc)" >"$log" 2>&1; then
    sed -n '/tests passed/,$p' "$log"
    grep -B2 -A60 -E '\*\*\*(Failed|Exception|Timeout)|Failure' "$log" | tail -n 150
    echo "FAILED: ctest in $2 (whole output in $log)" >&2
    exit 1
  fi
  grep -E 'tests passed' "$log"
}
