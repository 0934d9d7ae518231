#!/usr/bin/env bash
# vxio.exe's process commands under Wine, against the tests' child process
# (vxio_child.exe, built beside vxio.exe): ps by every method that Wine
# serves, modules with full bases, threads, handles with the system's type
# names, services in words, every listing's JSON and headers, dump, kill
# refused and confirmed, a process that does not exist, and bad usage.
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

# Every listing's JSON: one object a line, each field present with its
# type; the child's own lines where the command is about it.
json_fields='{
 "ps": {"pid": int, "parent": int, "name": str, "path": str},
 "modules": {"pid": int, "base": int, "size": int, "name": str, "path": str, "libraryBase": int},
 "threads": {"pid": int, "tid": int},
 "handles": {"pid": int, "handle": int, "type": (str, type(None)), "libraryType": str,
             "typeNumber": int, "access": int, "name": str, "libraryName": str},
 "drivers": {"name": str, "path": str},
 "services": {"name": str, "displayName": str, "state": int, "stateName": str, "type": int,
              "typeName": str, "pid": int, "controlsAccepted": int}}'
for args in "ps" "modules $pid" "threads $pid" "handles $pid" "drivers" "services"; do
    # shellcheck disable=SC2086
    if vxio $args --json | python3 -c '
import json, sys
fields = eval(sys.argv[2])[sys.argv[1]]
rows = [json.loads(line) for line in sys.stdin]
for row in rows:
    for name, kind in fields.items():
        assert isinstance(row[name], kind) and not isinstance(row[name], bool), (name, row)
    if sys.argv[1] == "modules":  # the engine keeps the low half of the full base
        assert row["base"] & 0xFFFFFFFF == row["libraryBase"], row
    if sys.argv[1] == "services":
        assert row["stateName"] in ("stopped", "start pending", "stop pending", "running",
            "continue pending", "pause pending", "paused"), row
if sys.argv[1] in ("ps", "modules", "threads", "handles"):
    assert any(row["pid"] == int(sys.argv[3]) for row in rows), "the child is missing"
if sys.argv[1] == "modules":  # 64-bit images load above 4 GiB here
    assert any(row["base"] > 0xFFFFFFFF and row["name"] == "vxio_child_module.dll" for row in rows)
' "${args%% *}" "$json_fields" "$pid"; then pass; else fail "$args --json"; fi
done

# Headers: the first line of each table, gone with --no-header.
while IFS='|' read -r args header; do
    # shellcheck disable=SC2086
    check "$args: header" "$header" "$(vxio $args | head -1)"
    # shellcheck disable=SC2086
    case $(vxio $args --no-header | head -1) in "$header") fail "$args --no-header" ;; *) pass ;; esac
done <<TABLE
ps|PID	PARENT	NAME	PATH
modules $pid|BASE	SIZE	PATH
threads $pid|TID
handles $pid|HANDLE	TYPE	NAME
drivers|NAME	PATH
services|NAME	STATE	TYPE	PID	DISPLAY NAME
TABLE

out=$(vxio modules "$pid" --no-header)
# 16 hex digits, the high half too (the child's module loads above 4 GiB).
if awk -F'\t' '/vxio_child_module\.dll$/ && length($1) == 16 && substr($1, 1, 8) != "00000000" {
    found = 1 } END { exit !found }' <<<"$out"; then pass; else fail "modules: full base: $out"; fi
check "threads: two" 2 "$(vxio threads "$pid" --no-header | wc -l)"
# The system's own type names (Wine's answers), and no engine marks.
out=$(vxio handles "$pid")
case $out in *"	File	"*held.txt*) pass ;; *) fail "handles: the child's file: $out" ;; esac
case $out in *"	Key	\\REGISTRY\\"*) pass ;; *) fail "handles: a registry key: $out" ;; esac
case $out in *"	__"*) fail "handles: a mark shown: $out" ;; *) pass ;; esac
case $(vxio services) in *"	running	"*" process	"*) pass ;; *) fail "services: words" ;; esac

# A process id that names no process, in every command that takes one.
absent=4294967292
case $(vxio ps --no-header) in *"$absent	"*) fail "pid $absent exists" ;; esac
for command in modules threads handles dump kill; do
    err=$(vxio "$command" "$absent" 2>&1 >/dev/null </dev/null)
    check "$command $absent" "vxio $command: $absent: no such process 1" "$err $?"
done

# Bad usage, the child still running: exit 2, the hint on stderr, nothing
# on stdout or on disk.
mkdir usage && cd usage || exit 1
while read -r args; do
    # shellcheck disable=SC2086
    out=$(vxio $args 2>err)
    status=$?
    if [ $status -eq 2 ] && [ -z "$out" ] && grep -q "Try 'vxio ${args%% *} --help'" err; then
        pass
    else fail "usage: $args: $status [$out] $(cat err)"; fi
    rm err
done <<TABLE
ps --bogus
ps extra
ps --method
ps --method tea
ps --json=1
modules
modules --bogus 8
modules 8 9
modules -1
modules 4294967296
modules 8x
threads 99999999999999999999
threads --no-header
handles 8 --json 9
handles 0x10
drivers extra
services --verbose
dump $pid extra
dump $pid --out
dump +256
kill $pid --yes=1
kill --yes
TABLE
check "usage: nothing written" "" "$(ls)"
cd .. || exit 1

vxio dump "$pid" --out dumps >/dev/null 2>&1
if [ -s dumps/report.txt ] && ls dumps | grep -q _memDump; then pass; else fail "dump: files"; fi
touch plain
check "dump into a file" "vxio dump: plain: not a directory 1" \
    "$(vxio dump "$pid" --out plain 2>&1) $?"
[ -e report.txt ] && fail "dump into a file: report written"

named="process $pid (vxio_child.exe, "
out=$(echo n | vxio kill "$pid")
case $out in "terminate $named"*"vxio_child.exe)? [y/N] nothing done") pass ;; *) fail "kill refused: $out" ;; esac
out=$(vxio kill "$pid" --yes)
case $out in "terminated $named"*"vxio_child.exe)") pass ;; *) fail "kill: $out" ;; esac
out=$(vxio ps)
case $out in *"$pid	"*vxio_child.exe*) fail "kill: the child still runs" ;; *) pass ;; esac
exec 7>&-

summary
