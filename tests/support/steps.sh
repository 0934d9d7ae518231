# Shared by the tests that check a layout step by step (install, release
# archive): a scratch directory work (removed at exit), the counters
# passed/failed, check DESCRIPTION COMMAND... (runs COMMAND; on failure
# prints the description and the end of its output) and summary.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0 failed=0
check() {
  local what=$1; shift
  if "$@" >"$work/out" 2>&1; then passed=$((passed + 1)); else
    failed=$((failed + 1)); echo "FAILED: $what"; sed 's/^/  /' "$work/out" | tail -20; fi
}
summary() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}
