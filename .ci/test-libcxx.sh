#!/usr/bin/env bash
# Builds everything with libc++, the standard library of macOS, and runs the
# tests. The texts and rules that users see from it hold with both libraries.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. .ci/zig.sh

zig_build ZigLinux
cd build/ZigLinux
ctest --parallel $((2 * $(nproc))) --output-on-failure --no-tests=error \
  -LE soak
