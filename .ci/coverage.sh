#!/usr/bin/env bash
# Measures how much of the system's own code the tests run. Prints the lines
# that they do not, and fails below 97 % of the lines or 90 % of the branches.
#
# A forked child starts to count in the middle of a function, so a count may be
# negative; that is not an error. Branches that only an exception takes do not
# count, since the compiler adds one to nearly every call. Neither do branches
# on lines without code of their own, such as closing braces.
# docs/what-it-survives.md says why no test runs the other lines.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh check

# The counts of earlier runs.
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
scripts/test.sh coverage

gcovr --root . --filter '(common|environment|launcher|logger)/' \
  --gcov-ignore-parse-errors --exclude-throw-branches \
  --exclude-unreachable-branches \
  --print-summary --fail-under-line 97 --fail-under-branch 90 build/coverage
