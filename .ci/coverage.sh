#!/usr/bin/env bash
# Measures how much of the system's own code the tests run. Prints the lines
# that they do not, and fails below 97 % of the lines or 90 % of the branches.
#
# A forked child that counts from the middle of a function on may leave a
# negative count; that is no error. Branches that only an exception takes do not
# count: the compiler makes one of nearly every call. Neither do those on lines
# without code of their own, such as closing braces. docs/what-it-survives.md
# says why no test runs the other lines.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh check

# What earlier runs have counted.
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
scripts/test.sh coverage

gcovr --root . --filter '(common|environment|launcher|logger)/' \
  --gcov-ignore-parse-errors --exclude-throw-branches \
  --exclude-unreachable-branches \
  --print-summary --fail-under-line 97 --fail-under-branch 90 build/coverage
