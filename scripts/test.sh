#!/usr/bin/env bash
# Sets up, builds, and runs all tests but those that take minutes. Lists the
# skipped tests at the end, and the reasons.
set -euo pipefail

usage='usage: scripts/test.sh [--soak] [PRESET [CTEST-ARGUMENT...]]

--soak  also run the tests that take minutes
PRESET  a preset of CMakePresets.json; by default "debug"'

soak='^soak$|'
case ${1-} in
  --soak)
    soak=
    shift
    ;;
  -*)
    echo "$usage" >&2
    exit 2
    ;;
esac
preset=${1-debug}

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh test
processors=$(getconf _NPROCESSORS_ONLN)

cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$processors"

# Most of a test's time is spent waiting for processes. A test's label names the
# presets that it is not for.
cd "build/$preset"
status=0
ctest --parallel $((2 * processors)) --output-on-failure --no-tests=error \
  -LE "${soak}not in [^:]*$preset" "${@:2}" || status=$?

skipped=$(awk '
  /: Skipped$/ { getline; print; next }
  sub(/^skipped: /, "") { print }
' Testing/Temporary/LastTest.log | sort | uniq -c)
if [[ -n $skipped ]]; then
  echo
  echo 'Skipped tests, and what they need:'
  echo "$skipped"
fi
exit "$status"
