#!/usr/bin/env bash
# Sets up, builds, and runs every test.
set -euo pipefail

usage='usage: scripts/test.sh [--soak] [PRESET [CTEST-ARGUMENT...]]

--soak  also run the tests that take minutes
PRESET  how to build (CMakePresets.json); "debug" when it is left out'

selection=(-LE soak)
case ${1-} in
  --soak)
    selection=()
    shift
    ;;
  -*)
    echo "$usage" >&2
    exit 2
    ;;
esac
preset=${1-debug}
selection+=("${@:2}")

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh test
processors=$(getconf _NPROCESSORS_ONLN)

cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$processors"

# Most of a test's time is spent waiting for processes.
cd "build/$preset"
ctest --parallel $((2 * processors)) --output-on-failure --no-tests=error \
  ${selection[@]+"${selection[@]}"}
