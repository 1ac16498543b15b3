#!/bin/sh
# Usage: documents.sh SOURCE-DIRECTORY WORK-DIRECTORY PROGRAM-DIRECTORY... --
#        DOCUMENT...
#
# Compares the documents with the tree and its programs. In each document
# - the blocks marked "sh" run as one script, in a directory that has the source
#   tree's documents and examples and is HOME as well. A block that cannot run
#   here has the reason in the line before it: "<!-- not run here: why -->";
# - each line of the blocks marked "text output" is among their output;
# - each block marked "json" is an items file without faults, except that its
#   programs may be missing on this machine;
# - each relative link leads to a file.
# The table of folders in README.md lists the folders of the tree.

set -eu
source=$1
work=$2
shift 2
while [ "$1" != -- ]; do
  PATH=$1:$PATH
  shift
done
shift

fail() {
  echo "$document: $1"
  exit 1
}

# The lines of the document's blocks marked $1.
blocks() {
  awk -v mark="\`\`\`$1" '
    $0 == mark { inside = 1; next }
    /^```/ { inside = 0 }
    inside { print }
  ' "$source/$document"
}

run_commands() {
  awk '
    /^<!-- not run here: .+ -->$/ { skip = 1; next }
    /^```sh$/ && !skip { print "echo \": block " NR "\""; inside = 1; next }
    /^```/ { inside = 0 }
    inside { print }
    { skip = 0 }
  ' "$source/$document" >commands
  sh -eu commands >output 2>&1 || {
    cat output
    fail "a command failed"
  }
  blocks "text output" >shown
  while IFS= read -r line; do
    grep -qxF -- "$line" output || {
      cat output
      fail "not in the output: $line"
    }
  done <shown
  echo "$document: $(grep -c '^: block' output) blocks run," \
    "$(wc -l <shown) lines of output compared"
}

# Each block of the recipes and of the README is one object.
check_items() {
  blocks json | awk '/^{$/ { ++n } { print >("block." n ".json") }'
  for items in block.*.json; do
    [ -e "$items" ] || continue
    launcher-check --json "$items" >findings || :
    if sed -n 's/.*"id":"\([^"]*\)".*/\1/p' findings | grep -v '^program-'; then
      cat "$items"
      fail "these are findings about its items"
    fi
    grep -q '"runs":true' findings || fail "an items file runs nothing"
  done
}

check_links() {
  grep -oE '\]\([^)]+\)' "$source/$document" | sed 's/^](//; s/[#)].*//' |
    sort -u | grep -v ':' >links || :
  while IFS= read -r link; do
    [ -e "$source/$(dirname "$document")/$link" ] || fail "no file $link"
  done <links
}

check_tree() {
  sed -n 's/^| `\([^`]*\)\/` .*/\1/p' "$source/README.md" | sort >listed
  for folder in "$source"/*/ "$source"/.ci/; do
    basename "$folder"
  done | grep -vx build | sort >folders
  diff listed folders || fail "the tree has other folders"
}

for document; do
  rm -rf "$work"
  mkdir -p "$work"
  cd "$work"
  for folder in docs examples; do
    ln -s "$source/$folder" "$folder"
  done
  HOME=$PWD
  export HOME
  run_commands
  check_items
  check_links
  [ "$document" != README.md ] || check_tree
done
