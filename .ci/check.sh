#!/usr/bin/env bash
# Checks the source itself: its layout, the product by clang-tidy, and the
# scripts. Every finding is an error.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh check
processors=$(getconf _NPROCESSORS_ONLN)

echo 'Checking the scripts'
shellcheck .ci/run .ci/*.sh scripts/*.sh

echo 'Checking the layout'
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run --Werror

echo 'Running clang-tidy'
cmake --preset debug >/dev/null
run-clang-tidy -quiet -p build/debug -j "$processors" \
  "^$PWD/(common|environment|launcher|logger|tools)/" 2>/dev/null
