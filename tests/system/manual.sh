#!/bin/sh
# Usage: manual.sh MAN-DIRECTORY BUILD-DIRECTORY PROGRAM...
#
# Checks the manual pages and renders them. Each PROGRAM's --help must list the
# options and the exit statuses of its page. Without mandoc, this exits with 77,
# which CTest counts as skipped.

set -eu
pages=$1
build=$2
shift 2

if ! command -v mandoc >/dev/null; then
  echo "skipped: mandoc is not installed"
  exit 77
fi

backspace=$(printf '\b')

fail() {
  echo "$*" >&2
  exit 1
}

# mandoc finds referenced pages only in the installed layout.
rm -rf "$build"
for page in "$pages"/*.[158]; do
  section=$build/man${page##*.}
  mkdir -p "$section"
  cp "$page" "$section"
done

cd "$build"
if command -v makewhatis >/dev/null; then
  makewhatis "$build"
fi
count=0
for page in man*/*; do
  count=$((count + 1))
  MANPATH=$build mandoc -Tlint -W style "$page" || fail "$page: not clean"
  name=$(basename "$page")
  mandoc -Tascii "$page" | sed "s/.$backspace//g" >"$name.txt"
  for heading in NAME DESCRIPTION 'SEE ALSO'; do
    grep -q "^$heading\$" "$name.txt" || fail "$name: no heading $heading"
  done
  grep -q "^ *${name%.*} . " "$name.txt" || fail "$name: no name"
done

# The long options in a text, one a line.
options() {
  grep -oE -- '--[a-z]+' | sort -u
}

for program; do
  page=$(basename "$program").1.txt
  for heading in SYNOPSIS 'EXIT STATUS' EXAMPLES; do
    grep -q "^$heading\$" "$page" || fail "$page: no heading $heading"
  done
  # Its synopsis, its list of options and --help have the same options.
  sed -n '/^SYNOPSIS/,/^DESCRIPTION/p' "$page" | options >synopsis
  sed -n '/^DESCRIPTION/,/^EXIT STATUS/p' "$page" |
    grep -E '^ +(-h, )?--' | options >explained
  "$program" --help | options >help
  cmp synopsis explained || fail "$page: the synopsis differs"
  cmp help explained || fail "$page: --help differs"
  # --help lists the exit statuses of the page.
  sed -n '/^EXIT STATUS/,/^EXAMPLES/p' "$page" |
    grep -oE '^ +[0-9]+ ' | tr -d ' ' >statuses
  "$program" --help | sed -n '/^Exit status:/,$p' |
    grep -oE '\b[0-9]+\b' >statuses.help
  cmp statuses statuses.help || fail "$page: exit statuses differ"
done
echo "$count pages are clean"
