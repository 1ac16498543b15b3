#!/usr/bin/env bash
# Measures how much of the system's own code the tests run. Prints the lines
# that they do not, and fails below 97 % of the lines or 90 % of the branches.
#
# A copy that counts from the middle of a function on may leave a negative count
# behind; that is no error. Branches that only an exception takes do not count:
# the compiler makes one of nearly every call. Neither do those on lines without
# code of their own, such as closing braces. docs/what-it-survives.md says why
# what is left is left.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh check

# Left out are comparisons with oracles, which are slow where every branch is
# counted and run the same code as others, and tests that the counting itself
# disturbs: of what objects call, and of refused memory.
beyond_counting='AgreesWithTheOracle|LosesNothing$|ForkedSide|RefusedMemory'

# What earlier runs have counted.
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
scripts/test.sh coverage -E "$beyond_counting"

gcovr --root . --filter '(common|environment|launcher|logger)/' \
  --gcov-ignore-parse-errors --exclude-throw-branches \
  --exclude-unreachable-branches \
  --print-summary --fail-under-line 97 --fail-under-branch 90 build/coverage
