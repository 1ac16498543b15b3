#!/bin/sh
# Usage: test-docs.sh SOURCE-DIRECTORY WORK-DIRECTORY PROGRAM-DIRECTORY... --
#        DOCUMENT...
#
# Runs the commands in the documents: each block marked "sh", in a directory
# with the source tree's folders in it, as one script per document. A block
# whose commands cannot be run here says so in the line before it, "<!-- not run
# here: why -->". What a block marked "text output" shows is among the output.

set -eu
source=$1
work=$2
shift 2
while [ "$1" != -- ]; do
  PATH=$1:$PATH
  shift
done
shift

for document; do
  rm -rf "$work"
  mkdir -p "$work"
  cd "$work"
  for folder in docs examples share; do
    ln -s "$source/$folder" "$folder"
  done
  awk '
    /^<!-- not run here: .+ -->$/ { skip = 1; next }
    /^```sh$/ { if (!skip) { print "echo \": block " NR "\""; inside = 1 } next }
    /^```/ { inside = 0 }
    inside { print }
    { skip = 0 }
  ' "$source/$document" >commands
  [ -s commands ] || continue
  echo "$document:"
  sh -eu commands >output 2>&1 || {
    cat output
    echo "$document: a command failed"
    exit 1
  }
  # What the document shows of it.
  awk '
    /^```text output$/ { inside = 1; next }
    /^```/ { inside = 0 }
    inside { print }
  ' "$source/$document" >shown
  while IFS= read -r line; do
    grep -qxF -- "$line" output || {
      cat output
      echo "$document: not in the output: $line"
      exit 1
    }
  done <shown
  echo "$(grep -c '^: block\|^echo ": block' commands) blocks run," \
    "$(wc -l <shown) lines of output compared"
done
