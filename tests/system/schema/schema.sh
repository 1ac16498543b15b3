#!/bin/sh
# Usage: test-schema.sh SCHEMA BUILD-DIRECTORY [ITEMS-FILE...]
#
# Validates the schema's example files with ajv, which npm installs below the
# build directory the first time, in the versions of package-lock.json. Exits
# with 77, which CTest counts as skipped, where there is no npm or npm reaches no
# registry; whatever else keeps npm from it is a failure.

set -eu
here=$(cd "$(dirname "$0")" && pwd)
schema=$1
build=$2
shift 2

if ! command -v npm >/dev/null || ! command -v node >/dev/null; then
  echo "skipped: node and npm are not installed"
  exit 77
fi
mkdir -p "$build"
cd "$build"
if ! cmp -s "$here/package-lock.json" installed; then
  cp "$here/package.json" "$here/package-lock.json" .
  if ! npm ci --ignore-scripts --no-audit --no-fund --fetch-retries=0 \
    --fetch-timeout=60000 >npm.log 2>&1; then
    unreachable='code (ENOTFOUND|EAI_AGAIN|ECONN|ETIMEDOUT|ENETUNREACH'
    unreachable="$unreachable|EHOSTUNREACH|ERR_SOCKET_TIMEOUT|E40[37]|E5[0-9][0-9])"
    if grep -qE "$unreachable" npm.log; then
      echo "skipped: npm reaches no registry (see $build/npm.log)"
      exit 77
    fi
    cat npm.log
    exit 1
  fi
  cp package-lock.json installed
fi
node "$here/validate.mjs" "$schema" "$here" "$@"
