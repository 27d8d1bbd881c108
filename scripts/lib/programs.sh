# shellcheck shell=bash
#
# To be sourced by bash scripts: runs the tests against one program of Debian's after the other.
#
#   run_programs NAME BUILD_FOLDER PROGRAM...
#       runs the tests that ctest has under each program's label, says how many, and keeps the logs
#       as build/NAME-PROGRAM.log; fails when a test fails, and when a program ran none

# How many tests a file of ctest's says were run: those that were skipped or never started are not.
tests_run() { grep -c '<testcase .*status="run"' "$1" || true; }

run_program() {
  local name="$1" build="$2" program="$3" log results count
  log="$PWD/build/$name-$program.log"
  results="$PWD/build/$name-$program.xml"
  rm -f "$results"
  if ! ctest --test-dir "$build" --label-regex "^$program\$" --no-tests=error --output-on-failure \
    --parallel "$(nproc)" --output-junit "$results" >"$log" 2>&1; then
    cat "$log" >&2
    echo "$program: failed" >&2
    return 1
  fi
  count="$(tests_run "$results")"
  echo "$program: ran $count tests"
  [ "$count" -gt 0 ]
}

run_programs() {
  local name="$1" build="$2" program failed=()
  shift 2
  for program in "$@"; do
    run_program "$name" "$build" "$program" || failed+=("$program")
  done
  [ ${#failed[@]} -eq 0 ] && return
  echo "test-$name: failed: ${failed[*]}" >&2
  return 1
}
