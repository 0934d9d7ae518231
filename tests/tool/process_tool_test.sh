#!/usr/bin/env bash
# vxio.exe's process commands under Wine, against the tests' child process
# (vxio_child.exe, built beside vxio.exe): ps by every method that Wine
# serves, modules, threads, handles, dump, kill refused and confirmed, and
# bad usage.
# Usage: process_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"
check() { if [ "$2" == "$3" ]; then pass; else fail "$1: want [$2] got [$3]"; fi; }
bin=$(dirname "$exe")

cd "$work" || exit 1
mkfifo input
# The child waits until its standard input closes; the fifo is held open
# by descriptor 7 until the end of the test.
"$wine_run" "$bin/vxio_child.exe" 64 held.txt <input >ready &
exec 7>input
for _ in $(seq 100); do grep -q ready ready 2>/dev/null && break; sleep 0.2; done
pid=$(awk '{print $2}' ready)
[ -n "$pid" ] || { fail "the child did not start"; summary; exit 1; }

for method in toolhelp psapi native brute; do
    out=$(vxio ps --method "$method" 2>&1)
    case $out in *"$pid	"*"vxio_child.exe"*) pass ;; *) fail "ps --method $method: $out" ;; esac
done
out=$(vxio ps --json)
if printf '%s\n' "$out" | python3 -c '
import json, sys
pids = {json.loads(l)["pid"] for l in sys.stdin}
assert int(sys.argv[1]) in pids' "$pid"; then pass; else fail "ps --json"; fi

case $(vxio modules "$pid") in *vxio_child_module.dll*) pass ;; *) fail "modules" ;; esac
check "threads: two" 2 "$(vxio threads "$pid" | wc -l)"
case $(vxio handles "$pid") in *held.txt*) pass ;; *) fail "handles: the child's file" ;; esac

mkdir dumps
vxio dump "$pid" --out dumps >/dev/null 2>&1
if [ -s dumps/report.txt ] && ls dumps | grep -q _memDump; then pass; else fail "dump: files"; fi

check "kill refused" "terminate process $pid? [y/N] nothing done" "$(echo n | vxio kill "$pid")"
check "kill" "terminated $pid" "$(vxio kill "$pid" --yes)"
out=$(vxio ps)
case $out in *"$pid	"*vxio_child.exe*) fail "kill: the child still runs" ;; *) pass ;; esac
exec 7>&-

vxio modules >/dev/null 2>&1
check "usage: modules without PID" 2 $?
vxio ps --method tea >/dev/null 2>&1
check "usage: unknown method" 2 $?

summary
