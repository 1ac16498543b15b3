#!/bin/sh
# Usage: test-schema.sh SCHEMA BUILD-DIRECTORY [ITEMS-FILE...]
#
# Validates the schema's example files with ajv, which npm installs below the
# build directory the first time. Exits with 77, which CTest counts as skipped,
# where that cannot be had.

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
if ! cmp -s "$here/package.json" package.json || [ ! -d node_modules/ajv ]; then
  cp "$here/package.json" .
  if ! npm install --no-audit --no-fund --fetch-retries=0 >npm.log 2>&1; then
    rm -f package.json
    echo "skipped: npm cannot install ajv (see $build/npm.log)"
    exit 77
  fi
fi
node "$here/validate.mjs" "$schema" "$here" "$@"
