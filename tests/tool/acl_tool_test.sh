#!/usr/bin/env bash
# vxio.exe acl under Wine: the help text and bad usage, "sddl" and "csl"
# listings of one file, a recursive listing into a file and into none
# (every record printed, in walk order; JSON), a command that fails, and
# restoring a saved listing with --in (a well-formed record, a malformed
# one, an unreadable input file).
# Usage: acl_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"
check() { if [ "$2" == "$3" ]; then pass; else fail "$1: want '$2', got '$3'"; fi; }
# starts_with / ends_with / contains LABEL PIECE TEXT (PIECE taken literally)
starts_with() { if [[ $3 == "$2"* ]]; then pass; else fail "$1: '$3' does not start with '$2'"; fi; }
ends_with() { if [[ $3 == *"$2" ]]; then pass; else fail "$1: '$3' does not end with '$2'"; fi; }
contains() { if [[ $3 == *"$2"* ]]; then pass; else fail "$1: '$3' does not contain '$2'"; fi; }
# Runs vxio with ARGS; sets out (CRs dropped), err and status.
run_vxio() {
    out=$(vxio "$@" 2>"$work/stderr" | tr -d '\r'; exit "${PIPESTATUS[0]}")
    status=$?
    err=$(cat "$work/stderr")
}
# The Windows name of a path below / (Wine's drive Z:).
win() { local p=${1//\//\\}; printf 'Z:%s' "$p"; }
# list_command NAME FORMAT PARTS OUTPUT: explicit and inherited entries.
list_command() { printf -- '--objectName>>%s>>--objectType>>file>>--action>>List>>%s>>%s>>Yes>>Both>>%s' "$@"; }

mkdir -p "$work/tree/sub"
printf 'data' >"$work/a.txt"
printf 'one' >"$work/tree/one.txt"
printf 'two' >"$work/tree/sub/two.txt"
printf 'three' >"$work/tree/sub/three.txt"
a=$(win "$work/a.txt")

# Help: exit 0, on stdout, with its three worked examples.
run_vxio acl --help
check "help: exit status" 0 "$status"
for example in "list a file as SDDL" "make a directory tree's DACL protected" \
               "restore from a saved SDDL listing"; do
    contains "help: example '$example'" "  $example" "$out"
done
check "help: three example commands" 3 "$(grep -c '^    vxio acl ' <<<"$out")"

# Bad usage: exit 2, a message on stderr, nothing run.
for args in "acl" "acl --in" "acl one two" "acl --bogus a>>b" "acl --json=1 a>>b" "acl a>>b c>>d"; do
    # shellcheck disable=SC2086
    run_vxio $args
    check "usage '$args': exit status" 2 "$status"
    check "usage '$args': nothing on stdout" "" "$out"
    if [ -n "$err" ]; then pass; else fail "usage '$args': no message on stderr"; fi
done

# One file as "sddl": one line, the quoted name, type 1, the quoted SDDL
# text (here a DACL) and the record terminator.
run_vxio acl "$(list_command "$a" sddl dacl None)"
check "sddl: exit status" 0 "$status"
check "sddl: one line" 1 "$(wc -l <<<"$out")"
starts_with "sddl: name and type" "\"$a\",1,\"D:" "$out"
ends_with "sddl: terminator" '">>>' "$out"
sddl_record=$out

# The same file as "csl": the DACL part with its protection and entries
# (account/type/flags/mask), then the owner.
run_vxio acl "$(list_command "$a" csl dacl,owner None)"
check "csl: exit status" 0 "$status"
starts_with "csl: name and type" "\"$a\",1,\"DACL(" "$out"
contains "csl: an entry" "/allow/" "$out"
contains "csl: owner" ";Owner:" "$out"

# A missing object fails the whole command: the object named on stderr, exit 1.
run_vxio acl "$(list_command "$(win "$work/missing.txt")" sddl dacl None)"
check "missing object: exit status and output" "1 []" "$status [$out]"
starts_with "missing object: message" "vxio acl: $(win "$work/missing.txt"): " "$err"

# A recursive listing into a file: one record a line for every file of the
# tree (the directories are walked, not listed), each line ending in the
# terminator and CR CR LF; stdout gets every record, in walk order, as it
# does when the command names no file (None).
saved=$work/saved.txt
tree_command() { printf -- '--objectName>>%s>>--objectType>>file>>--recursion>>fileRecurse>>--action>>List>>sddl>>dacl,owner>>No>>Yes>>%s' "$(win "$work/tree")" "$1"; }
run_vxio acl "$(tree_command "$(win "$saved")")"
check "tree: exit status" 0 "$status"
check "tree: records" 3 "$(grep -c '>>>'$'\r\r''$' "$saved")"
for f in one.txt sub/two.txt sub/three.txt; do
    check "tree: record of $f" 1 "$(grep -cF "\"$(win "$work/tree/$f")\",1,\"O:" "$saved")"
done
check "tree: every record printed" "$(tr -d '\r' <"$saved")" "$out"
run_vxio acl "$(tree_command none)"
check "tree into None: every record, in walk order" "0 $(tr -d '\r' <"$saved")" "$status $out"
run_vxio acl --json "$(tree_command None)"
if WANT=$(tr -d '\r' <"$saved" | cut -d'"' -f2) python3 -c '
import json, os, sys
got = [json.loads(line) for line in sys.stdin]
assert [o["objectName"] for o in got] == os.environ["WANT"].split("\n"), got
assert all(o["objectType"] == 1 and o["objectTypeName"] == "file" and
           o["descriptor"].startswith("O:") and o["record"].endswith(">>>") for o in got), got
' <<<"$out"; then pass; else fail "tree json: $out"; fi

# Restore from a saved record: "ok", and the object lists as saved. The
# record is the first line of the listing without its line end.
head -n 1 "$saved" | tr -d '\r\n' >"$work/record.txt"
first=$(cat "$work/record.txt")
name=${first#\"}
name=${name%%\",*}
run_vxio acl --in "$(win "$work/record.txt")" "--objectName>>$name>>--objectType>>file>>--action>>Restore>>FromVOXAStruct"
check "restore: exit status" 0 "$status"
check "restore: output" "ok" "$out"
run_vxio acl "$(list_command "$name" sddl dacl,owner None)"
check "restore: listed as saved" "$first" "$out"

# A text that holds no record, and an input file that cannot be read.
printf 'no record here' >"$work/bad.txt"
run_vxio acl --in "$(win "$work/bad.txt")" "--objectName>>$a>>--objectType>>file>>--action>>Restore>>FromVOXAStruct"
check "restore malformed: exit status and output" "1 []" "$status [$out]"
run_vxio acl --in "$(win "$work/none.txt")" "--objectName>>$a>>--objectType>>file>>--action>>Restore>>FromVOXAStruct"
check "restore unreadable: exit status" 1 "$status"
check "restore unreadable: nothing on stdout" "" "$out"

# The malformed text changed nothing.
run_vxio acl "$(list_command "$a" sddl dacl None)"
check "restore malformed: file unchanged" "$sddl_record" "$out"

summary
