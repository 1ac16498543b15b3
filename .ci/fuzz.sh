#!/usr/bin/env bash
# Fuzzes for a given time: builds the targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer and runs one after the other, each from its corpus.
#
#   .ci/fuzz.sh SECONDS [TARGET...]
#
# TARGET is the name of a folder in tests/fuzz/corpus; the default is all of
# them. Keeps new inputs, and those that make a target fail, in
# build/fuzz/found. Ends when a target fails.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 1 ]; then
  sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0" >&2
  exit 2
fi
seconds=$1
shift
if [ $# -eq 0 ]; then
  set -- tests/fuzz/corpus/*
fi

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzzers
for target in "${@##*/}"; do
  found=build/fuzz/found/$target
  mkdir -p "$found/inputs"
  echo "$target: $seconds seconds"
  build/fuzz/tests/fuzz/"$target" -max_total_time="$seconds" -max_len=8192 \
    -timeout=10 -print_final_stats=1 -artifact_prefix="$found/" \
    "$found/inputs" "tests/fuzz/corpus/$target"
done
