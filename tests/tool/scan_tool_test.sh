#!/usr/bin/env bash
# vxio.exe scan under Wine over a tree made here, against sha1sum run
# natively on the same files: the same digests, "sha1sum -c" on the
# output, walk order independent of --jobs, --exclude, --max-depth,
# --json, --summary, a link back up the tree (listed, not entered), names
# outside the ANSI code page, named like devices, paths over 260
# characters and a "\\?\" root, a missing PATH, an unlistable directory
# and a FIFO (reported, the scan goes on, exit 1), hash signatures with
# their removal, and bad usage.
# Usage: scan_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"
run_vxio() {
    out=$(vxio "$@" 2>"$work/stderr")
    status=$?
    err=$(cat "$work/stderr")
}

cd "$work" || exit 1
mkdir -p tree/sub/deeper tree/empty 'tree/with space'
: >tree/empty.bin
head -c 4097 /dev/urandom >tree/a.bin
head -c $(((1 << 20) + 3)) /dev/urandom >tree/sub/b.bin
printf 'x' >tree/sub/deeper/c.txt
printf 'y' >'tree/with space/d e.txt'
printf 'z' >tree/sub/skip.tmp
printf 'accent' >"tree/caf$(printf '\xc3\xa9').txt"
printf 'hidden' >tree/.hidden
ln -s .. tree/sub/up          # a link back up the tree: never entered
# Names the 8-bit calls get wrong: outside the ANSI code page, devices,
# one the library takes for "." or "..", and a path of over 300 characters.
long=$(printf 'L%.0s' {1..100})
mkdir -p "tree/names/$long/$long/$long"
for name in nul.txt CON aux.log com1.exe LPT9 "$(printf '\xe4\xb8\xad\xe6\x96\x87').txt" .a \
    "$long/$long/$long/deep.txt"; do printf '%s' "$name" >"tree/names/$name"; done

# Every file once, with sha1sum's digest; sha1sum -c accepts the lines.
# "tree/" asks for "/" separators; "tree" alone gets the system's "\".
run_vxio scan tree/
check "tree: exit status" 0 "$status"
check "tree: same digests as sha1sum" "$(find tree -type f -print0 | xargs -0 sha1sum | sort)" \
    "$(printf '%s\n' "$out" | sort)"
printf '%s\n' "$out" >sums
if sha1sum --quiet -c sums >/dev/null 2>&1; then pass; else fail "tree: sha1sum -c"; fi

run_vxio scan 'tree\sub\deeper'
check "backslashes: escaped as sha1sum escapes them" \
    "\\$(sha1sum tree/sub/deeper/c.txt | cut -c1-40)  tree\\\\sub\\\\deeper\\\\c.txt" "$out"
run_vxio scan "\\\\?\\Z:$(pwd -P | tr / '\\')\\tree\\names"
check "long root: every file" "$(find tree/names -type f -print0 | xargs -0 sha1sum | cut -c1-40 |
    sort)" "$(printf '%s\n' "$out" | cut -c2-41 | sort)"

# The order is the walk's, whatever the number of hashers.
run_vxio scan --jobs 1 tree
one=$out
run_vxio scan --jobs 7 tree
check "jobs: same output with 1 and 7 hashers" "$one" "$out"

run_vxio scan --exclude '*.TMP' --exclude 'with space' --exclude 'tree/sub/deeper/*' \
    --exclude names tree/
check "exclude: names and paths" "$(cd . && sha1sum tree/a.bin tree/empty.bin tree/sub/b.bin \
    "tree/caf$(printf '\xc3\xa9').txt" tree/.hidden | sort)" "$(printf '%s\n' "$out" | sort)"

run_vxio scan --max-depth 1 tree/
check "max-depth 1: the top level only" "$(sha1sum tree/a.bin tree/empty.bin \
    "tree/caf$(printf '\xc3\xa9').txt" tree/.hidden | sort)" "$(printf '%s\n' "$out" | sort)"
run_vxio scan --max-depth 0 tree tree/a.bin
check "max-depth 0: files given by name only" "$(sha1sum tree/a.bin)" "$out"

# JSON: one object per line, every file and the link; sizes and digests
# agree with the files.
run_vxio scan --json tree/
printf '%s\n' "$out" >json
if python3 - json <<'PY'
import json, hashlib, os, sys
seen = {}
for line in open(sys.argv[1], encoding="utf-8"):
    o = json.loads(line)
    assert set(o) >= {"path", "kind", "size", "sha1"}, o
    seen[o["path"]] = o
    if o["kind"] == "file":
        data = open(o["path"], "rb").read()
        assert o["size"] == len(data) and o["sha1"] == hashlib.sha1(data).hexdigest(), o
        assert isinstance(o["attributes"], int), o
files = {os.path.join(d, f) for d, _, fs in os.walk("tree") for f in fs if not os.path.islink(os.path.join(d, f))}
assert {p for p, o in seen.items() if o["kind"] == "file"} == files, (seen.keys(), files)
assert seen["tree/sub/up"]["kind"] == "link" and seen["tree/sub/up"]["sha1"] is None
PY
then pass; else fail "json: objects"; fi

# A missing PATH is reported and counted; the other PATHs are still scanned.
run_vxio scan --summary missing tree/a.bin
check "missing: exit status" 1 "$status"
check "missing: the rest is scanned" "$(sha1sum tree/a.bin)" "$out"
case $err in
*"vxio: missing: No such file or directory"*"1 files, 0 streams, 0 skipped, 1 unreadable; 4097 bytes"*) pass ;;
*) fail "missing: message and summary: $err" ;;
esac

# Neither an unlistable directory nor a FIFO is ever hashed as empty. Root
# lists any directory: it runs without the capabilities that override
# file modes.
mkdir -p bad/locked && mkfifo bad/fifo && printf ok >bad/ok && chmod 000 bad/locked
nocaps=()
[ "$(id -u)" = 0 ] && nocaps=(setpriv --inh-caps=-dac_override,-dac_read_search
    --bounding-set=-dac_override,-dac_read_search)
out=$("${nocaps[@]}" "$wine_run" "$exe" scan --summary bad/ 2>"$work/stderr")
status=$? err=$(cat "$work/stderr")
chmod 755 bad/locked
check "gaps: exit status" 1 "$status"
check "gaps: the rest is scanned" "$(sha1sum bad/ok)" "$out"
for want in "vxio: bad/fifo: not a regular file (a pipe or FIFO)" \
    "vxio: bad/locked: Permission denied" "1 files, 0 streams, 0 skipped, 2 unreadable"; do
    case $err in *"$want"*) pass ;; *) fail "gaps: no '$want' in: $err" ;; esac
done

# Hash signatures: detections in walk order, by hash and size or by hash
# alone (*); files of other sizes are not read (no sha1 in JSON); an error
# outranks a detection; a bad list stops the run before anything is read.
mkdir -p sig/sub "sig/$(printf '\xe6\x97\xa5')"
printf 'known bad' >sig/sub/bad.bin
printf 'any size' >"sig/$(printf '\xe6\x97\xa5')/any.txt"
printf 'clean' >sig/clean.txt
printf 'known bad!' >sig/near.bin  # one byte more: passed by size
{
    echo '# test list'
    echo "$(sha1sum sig/sub/bad.bin | cut -c1-40):9:Test.Bad"
    echo
    echo "$(sha1sum "sig/$(printf '\xe6\x97\xa5')/any.txt" | cut -c1-40 | tr a-f A-F):*:Any.Size"
} >list.sigs
printf '%s:10:Other\n' "$(sha1sum sig/clean.txt | cut -c1-40)" >none.sigs
printf '# bad\n%s:12x:Bad\n' "$(sha1sum sig/clean.txt | cut -c1-40)" >bad.sigs
jp=$(printf '\xe6\x97\xa5')
found="sig/sub/bad.bin: Test.Bad FOUND
sig/$jp/any.txt: Any.Size FOUND"
rows=("--signatures list.sigs sig/|1|FOUND|"
      "--signatures=none.sigs sig/|0||"
      "--signatures list.sigs missing sig/|2|FOUND|vxio: missing: No such file or directory"
      "--signatures bad.sigs sig/|2||vxio: bad.sigs:2: bad signature line (the size is not a byte count or *)"
      "--signatures nolist sig/|2||vxio: nolist: No such file or directory")
for row in "${rows[@]}"; do
    IFS='|' read -r args want_status want_out want_err <<<"$row"
    want_out=${want_out/FOUND/$found}
    # shellcheck disable=SC2086
    run_vxio scan $args
    # The walk's order is the directory's; here only the lines count.
    check "signatures '$args'" "$want_status [$(sort <<<"$want_out")] [$want_err]" \
        "$status [$(sort <<<"$out")] [$err]"
done
run_vxio scan --signatures list.sigs --summary sig/
case $err in *"; 4 scanned, 2 infected") pass ;; *) fail "signatures: summary: $err" ;; esac
run_vxio scan --signatures list.sigs --json sig/
printf '%s\n' "$out" >json
run_vxio scan --signatures none.sigs --json sig/
printf '%s\n' "$out" >>json
if python3 - json <<'PY'
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1], encoding="utf-8")]
listed, none = lines[:4], {o["path"]: o for o in lines[4:]}
assert {o["path"]: o.get("detection") for o in listed} == {"sig/sub/bad.bin": "Test.Bad",
    "sig/\u65e5/any.txt": "Any.Size", "sig/clean.txt": None, "sig/near.bin": None}, listed
# Only sizes some signature has are read.
assert none["sig/clean.txt"]["sha1"] is None and none["sig/clean.txt"]["size"] == 5, none
assert none["sig/near.bin"]["sha1"] and "detection" not in none["sig/near.bin"], none
PY
then pass; else fail "signatures: json"; fi

# Removal asks once; "n" keeps every file. A read-only file goes too.
chmod a-w sig/sub/bad.bin
out=$(echo n | vxio scan --signatures list.sigs --remove sig/ 2>"$work/stderr")
status=$?
check "remove refused" "1 [$(sort <<<"$found")] [remove 2 detected files? [y/N] vxio scan: nothing removed]" \
    "$status [$(sort <<<"$out")] [$(tr '\n' ' ' <"$work/stderr" | sed 's/ $//')]"
[ -f sig/sub/bad.bin ] && pass || fail "remove refused: file gone"
out=$(vxio scan --signatures list.sigs --remove --yes sig/ </dev/null 2>"$work/stderr")
status=$?
check "remove --yes" "1 [$(sort <<<"$found
sig/$jp/any.txt: removed
sig/sub/bad.bin: removed")]" "$status [$(sort <<<"$out")]"
[ ! -e sig/sub/bad.bin ] && [ -f sig/clean.txt ] && pass || fail "remove --yes: files"

for bad in "--jobs 0" "--jobs 65" "--max-depth x" "--exclude" "--bogus tree" "" "--signatures" \
    "--remove tree" "--signatures list.sigs --yes tree" "--check sums tree" "--jobs=2x tree" \
    "--json=1 tree" "--max-depth -1 tree"; do
    # shellcheck disable=SC2086
    run_vxio scan $bad
    check "usage: '$bad'" 2 "$status"
done
run_vxio scan --help
check "help: exit status" 0 "$status"

# A reader that stops early ends the scan quietly, with status 0.
mkdir many && (cd many && touch $(seq -f 'f%04g' 3000))
out=$(vxio scan --jobs=2 many 2>"$work/stderr" | head -1; exit "${PIPESTATUS[0]}")
check "closed pipe: status, stderr" "0 []" "$? [$(cat "$work/stderr")]"

summary
