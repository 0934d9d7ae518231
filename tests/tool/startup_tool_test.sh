#!/usr/bin/env bash
# vxio.exe startup under Wine: a definition file pointing at a Run key the
# test makes under HKCU (values naming a file that exists, one that does
# not, and a folder), the listing (one line per finding whatever the views
# and passes that met it) and its JSON form, a repair refused at the
# prompt (nothing changes), repairs by id after the list changed and by
# index, a vanished id refused, what a repair really did (removed,
# rewritten, unchanged), findings marked by a signature list, the default
# definition file beside vxio.exe, and bad usage.
# Usage: startup_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"
check() { if [ "$2" == "$3" ]; then pass; else fail "$1: want [$2] got [$3]"; fi; }
run_vxio() {
    out=$(vxio "$@" 2>"$work/stderr" </dev/null)
    status=$?
    err=$(cat "$work/stderr")
}
reg() { "$wine_run" reg "$@" >/dev/null 2>&1; }
key='HKCU\Software\vxio-startup-tool-test'
trap 'reg delete "$key" /f; rm -rf "$work"' EXIT

cd "$work" || exit 1
mkdir 'some folder'
printf 'MZ' >evil.exe
winpath=$("$wine_run" winepath -w "$work/evil.exe" 2>/dev/null | tr -d '\r')
reg add "$key\\Run" /v evil /d "$winpath /quiet" /f
reg add "$key\\Run" /v spaced /d "$winpath  " /f
reg add "$key\\Run" /v other /d "$winpath" /f
reg add "$key\\Run" /v gone /d 'C:\vxio-missing\gone.exe' /f
reg add "$key\\Run" /v folder /d "$("$wine_run" winepath -w "$work/some folder" | tr -d '\r')" /f
printf '7,test run,0,HKCU,Software\\vxio-startup-tool-test\\Run,scansub_value,,disinf_deletenamevalue,\n' >defs.txt

run_vxio startup --definitions defs.txt
check "list: exit status" 0 "$status"
lower=$(printf '%s' "$winpath" | tr 'A-Z' 'a-z')
check "list: header" "ID	INDEX	DEFINITION	PATH	ROOT	VIEWS	KEY	NAME	ACTION" "$(head -n 1 <<<"$out")"
# HKCU\Software is shared by both registry views, and "PATH /quiet" is cut
# at "/" and again at the space, each pass finding the program; "PATH  "
# (trailing blanks) likewise: one line each all the same.
for name in evil spaced other; do
    check "list: $name once, in both views" 1 "$(P=$lower N=$name awk -F'\t' '$3 == 7 &&
        $4 == ENVIRON["P"] && $5 == "HKCU" && $6 == "32,64" && $8 == ENVIRON["N"] &&
        $7 == "Software\\vxio-startup-tool-test\\Run" && $9 == "disinf_deletenamevalue"' <<<"$out" | wc -l)"
done
run_vxio startup --definitions defs.txt --no-header
check "list: only the existing file, no header" "0 3" "$(grep -vc 'evil.exe' <<<"$out") $(wc -l <<<"$out")"

run_vxio startup --definitions=defs.txt --json
if printf '%s\n' "$out" | python3 -c '
import json, re, sys
names = []
for line in sys.stdin:
    o = json.loads(line)
    assert re.fullmatch("[0-9a-f]{8}", o["id"]) and o["definition"] == 7, o
    assert o["root"] == 0x80000001 and o["rootName"] == "HKCU", o
    assert o["views"] == [32, 64] and o["viewNames"] == ["32-bit", "64-bit"], o
    assert o["action"] == 2 and o["actionName"] == "disinf_deletenamevalue", o
    assert o["location"] == "Software\\vxio-startup-tool-test\\Run", o
    names.append(o["name"])
assert sorted(names) == ["evil", "other", "spaced"], names
'; then pass; else fail "json: $out"; fi
id_of() { grep "	$1	disinf" <<<"$out" | cut -f1; }
run_vxio startup --definitions defs.txt --no-header
evil_id=$(id_of evil) spaced_id=$(id_of spaced)

# Signatures: a finding whose file matches gets the signature's name as a
# last field (JSON "detection") and the exit status 1; a size alone is not
# enough; a bad list is refused, by line, before anything is scanned.
evil_sha1=$(sha1sum evil.exe | cut -c1-40)
printf '# list\r\n\r\n%s:3:Same-Hash-Other-Size\r\n%s:2:Test.Evil\r\n' "$evil_sha1" "$evil_sha1" >match.sigs
run_vxio startup --definitions defs.txt --signatures match.sigs --no-header
check "signatures: found exit status" 1 "$status"
check "signatures: every finding marked" 0 "$(printf '%s\n' "$out" | grep -vc '	disinf_deletenamevalue	Test.Evil$')"
run_vxio startup --definitions defs.txt --signatures match.sigs --json
case $out in *'"actionName":"disinf_deletenamevalue","detection":"Test.Evil"}'*) pass ;; *) fail "signatures json: $out" ;; esac
printf '%s:*:Other\n' "$(printf x | sha1sum | cut -c1-40)" >other.sigs
run_vxio startup --definitions defs.txt --signatures other.sigs --no-header
check "signatures: nothing found" "0 0" "$status $(printf '%s\n' "$out" | grep -vc '	disinf_deletenamevalue	-$')"
printf '# list\n%s:2x:Bad\n' "$evil_sha1" >bad.sigs
run_vxio startup --definitions defs.txt --signatures bad.sigs
check "signatures: bad list" "2 [] [vxio: bad.sigs:2: bad signature line (the size is not a byte count or *)]" "$status [$out] [$err]"

# Refused at the prompt: the value stays.
out=$(echo n | vxio startup --definitions defs.txt --clean "$evil_id" 2>&1)
case $out in *"will delete the value 'evil' of HKCU\\Software\\vxio-startup-tool-test\\Run (view 32,64)"*"nothing changed"*) pass ;;
*) fail "clean refused: $out" ;; esac
if reg query "$key\\Run" /v evil; then pass; else fail "clean refused: value gone"; fi

# The list changes under the ids: evil goes, so every index moves. Each
# repair acts on a fresh scan and reports what the registry now holds.
reg delete "$key\\Run" /v evil /f
run_vxio startup --definitions defs.txt --clean "$spaced_id" --yes
check "clean by id: result" "0 removed (view 32,64)" "$status $(tail -n 1 <<<"$out")"
check "clean by id: the right value" "gone other" "$(for v in spaced gone other; do reg query "$key\\Run" /v $v && printf '%s ' $v; done | xargs)"
run_vxio startup --definitions defs.txt --clean "$evil_id" --yes
check "clean by a vanished id" "1 [] [vxio startup: no finding $evil_id in a fresh scan: nothing changed]" "$status [$out] [$err]"
run_vxio startup --definitions defs.txt --clean 0 --yes
check "clean by index" "0 removed (view 32,64)" "$status $(tail -n 1 <<<"$out")"

# A repair that sets a value: the tool reads the value again and says what
# it holds, and a repair that leaves it as it was fails.
reg add "$key\\Win" /v shell /d "$lower" /f
for row in "$lower|1 unchanged (view 32,64)" "c:\\vxio-other.exe|0 value rewritten to 'c:\\vxio-other.exe' (view 32,64)"; do
    printf '9,shell,0,HKCU,Software\\vxio-startup-tool-test\\Win,scansub_false,shell,disinf_replacevalue,%s\n' "${row%%|*}" >shell.txt
    run_vxio startup --definitions shell.txt --clean 0 --yes
    check "replace with '${row%%|*}'" "${row#*|}" "$status $(tail -n 1 <<<"$out")"
done

run_vxio startup
check "default definitions: exit status" 0 "$status"

run_vxio startup --definitions missing.txt
check "missing definitions: exit status" 1 "$status"
check "missing definitions: message" "vxio: missing.txt: No such file or directory" "$err"
run_vxio startup --definitions 'some folder'
check "a folder as definitions: message" "vxio: some folder: Is a directory" "$err"
printf 'not a definition\n' >bad.txt
run_vxio startup --definitions bad.txt
check "unparsable definitions: exit status" 1 "$status"
for args in "--clean x" "--clean 1234567g" "--clean -1" "--clean=" "--bogus" "--json=1" \
            "--definitions" "extra" "--yes" "--clean 0 --json" "--clean 0 --no-header"; do
    # shellcheck disable=SC2086
    run_vxio startup $args
    check "usage '$args'" "2 [] Try 'vxio startup --help'." "$status [$out] $(tail -n 1 <<<"$err")"
done

summary
