#!/bin/bash
# The reference must keep up with the interface: every name vxio.def
# exports is documented in docs/, README.md stays a short front page, and
# no relative link in the documentation leads nowhere.
# Usage: docs_test.sh SOURCE_DIR
set -u
root=${1:?usage: docs_test.sh SOURCE_DIR}
cd "$root" || exit 1
failed=0

shopt -s nullglob
docs=(docs/*.md)
if [ ${#docs[@]} -eq 0 ]; then
  echo "no docs/*.md"; exit 1
fi

# Names are the indented lines after EXPORTS; each must appear as a whole
# word, so "VOXA_MEM_*" does not count for VOXA_MEM_Open.
names=$(awk '/^EXPORTS/ {on = 1; next} on && NF && $1 !~ /^;/ {print $1}' vxio.def)
count=0
for name in $names; do
  count=$((count + 1))
  if ! grep -qw -- "$name" "${docs[@]}"; then
    echo "undocumented export: $name"; failed=1
  fi
done
[ "$count" -gt 0 ] || { echo "no export names read from vxio.def"; failed=1; }

lines=$(wc -l < README.md)
if [ "$lines" -gt 160 ]; then
  echo "README.md has $lines lines (at most 160)"; failed=1
fi

# Markdown links [text](target): a target without a scheme or a leading #
# is a path relative to the page, checked without its #anchor.
for page in README.md "${docs[@]}"; do
  dir=$(dirname "$page")
  while IFS= read -r target; do
    case $target in
      *://*|mailto:*|'#'*) continue ;;
    esac
    path=${target%%#*}
    if [ ! -e "$dir/$path" ]; then
      echo "$page: broken link: $target"; failed=1
    fi
  done < <(grep -o '\](\([^)]*\))' "$page" | sed 's/^](\(.*\))$/\1/')
done

if [ $failed -eq 0 ]; then
  echo "$count exports documented, README.md $lines lines, links resolve"
fi
exit $failed
