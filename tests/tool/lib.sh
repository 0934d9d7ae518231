# Shared by the vxio.exe tests: sourced with the path of vxio.exe as $1.
# Gives exe, source_dir, wine_run, a scratch directory work (removed at
# exit), the counters passed/failed with pass and fail, vxio (runs the tool
# under Wine) and summary (prints "N passed, M failed" and sets the exit
# status), and check LABEL WANT GOT, which shows how the two texts differ.
# A script may define its own check after sourcing this file.
exe=$(realpath "$1")
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
wine_run=$source_dir/scripts/wine-run
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

passed=0 failed=0
vxio() { "$wine_run" "$exe" "$@"; }
pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*"; }
summary() {
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
check() {
    if [ "$2" == "$3" ]; then pass; else
        fail "$1"
        diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | head -20
    fi
}
