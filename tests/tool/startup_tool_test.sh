#!/usr/bin/env bash
# vxio.exe startup under Wine: a definition file pointing at a Run key the
# test makes under HKCU (values naming a file that exists, one that does
# not, and a folder), the listing and its JSON form, a repair refused at
# the prompt (nothing changes), a repair with --yes (only that value goes),
# findings marked by a signature list, the default definition file beside
# vxio.exe, and bad usage.
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
reg add "$key\\Run" /v gone /d 'C:\vxio-missing\gone.exe' /f
reg add "$key\\Run" /v folder /d "$("$wine_run" winepath -w "$work/some folder" | tr -d '\r')" /f
printf '7,test run,0,HKCU,Software\\vxio-startup-tool-test\\Run,scansub_value,,disinf_deletenamevalue,\n' >defs.txt

run_vxio startup --definitions defs.txt
check "list: exit status" 0 "$status"
lower=$(printf '%s' "$winpath" | tr 'A-Z' 'a-z')
# HKCU\Software is shared by both registry views, so each finding comes
# once a view; the text "PATH /quiet" is cut at "/" and again at the
# space, and each pass finds the program, with no blank after its name.
case $out in
*"	7	$lower	HKCU	"*"	Software\\vxio-startup-tool-test\\Run	evil	disinf_deletenamevalue"*) pass ;;
*) fail "list: the finding: $out" ;;
esac
check "list: only the existing file" 0 "$(printf '%s\n' "$out" | grep -vc 'evil.exe')"

run_vxio startup --definitions defs.txt --json
if printf '%s\n' "$out" | python3 -c '
import json, sys
for line in sys.stdin:
    o = json.loads(line)
    assert o["id"] == 7 and o["name"] == "evil" and o["root"] == "HKCU", o
    assert o["location"] == "Software\\vxio-startup-tool-test\\Run", o
'; then pass; else fail "json: $out"; fi

# Signatures: a finding whose file matches gets the signature's name as a
# last field (JSON "detection") and the exit status 1; a size alone is not
# enough; a bad list is refused, by line, before anything is scanned.
evil_sha1=$(sha1sum evil.exe | cut -c1-40)
printf '# list\r\n\r\n%s:3:Same-Hash-Other-Size\r\n%s:2:Test.Evil\r\n' "$evil_sha1" "$evil_sha1" >match.sigs
run_vxio startup --definitions defs.txt --signatures match.sigs
check "signatures: found exit status" 1 "$status"
check "signatures: every finding marked" 0 "$(printf '%s\n' "$out" | grep -vc '	disinf_deletenamevalue	Test.Evil$')"
run_vxio startup --definitions defs.txt --signatures match.sigs --json
case $out in *'"action":"disinf_deletenamevalue","detection":"Test.Evil"}'*) pass ;; *) fail "signatures json: $out" ;; esac
printf '%s:*:Other\n' "$(printf x | sha1sum | cut -c1-40)" >other.sigs
run_vxio startup --definitions defs.txt --signatures other.sigs
check "signatures: nothing found" "0 0" "$status $(printf '%s\n' "$out" | grep -vc '	disinf_deletenamevalue	-$')"
printf '# list\n%s:2x:Bad\n' "$evil_sha1" >bad.sigs
run_vxio startup --definitions defs.txt --signatures bad.sigs
check "signatures: bad list" "2 [] [vxio: bad.sigs:2: bad signature line (the size is not a byte count or *)]" "$status [$out] [$err]"

# Refused at the prompt: the value stays.
out=$(echo n | vxio startup --definitions defs.txt --clean 0 2>&1)
case $out in *"will delete the value 'evil' of HKCU\\Software\\vxio-startup-tool-test\\Run"*"nothing changed"*) pass ;;
*) fail "clean refused: $out" ;; esac
if reg query "$key\\Run" /v evil; then pass; else fail "clean refused: value gone"; fi

run_vxio startup --definitions defs.txt --clean 0 --yes
check "clean: exit status" 0 "$status"
if reg query "$key\\Run" /v evil; then fail "clean: value still there"; else pass; fi
if reg query "$key\\Run" /v gone; then pass; else fail "clean: another value went too"; fi

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
run_vxio startup --clean x
check "usage: bad index" 2 "$status"
run_vxio startup --bogus
check "usage: unknown option" 2 "$status"

summary
