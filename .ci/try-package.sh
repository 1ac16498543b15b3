#!/usr/bin/env bash
# Starts the launcher by hand, as its manual says. .ci/package.sh runs this in
# the system in which it has installed the package.
set -euo pipefail

readonly log=$HOME/Library/Logs/Demo/qvxlog/launcher.log

cp /usr/share/doc/tamrel-launcher/examples/qvxapi.ini \
  /usr/lib/tamrel-launcher/Contents/Frameworks
echo '{"0": {"name": "tick", "program": "/bin/true"}}' > /items.json
launcher-check --strict /items.json
launcher alpha /items.json &
until grep -qs "tick .* is killed" "$log"; do sleep 0.1; done
kill $!
status=0
wait $! || status=$?
launcher-log
launcher-log | grep -q '^tick '
test "$status" = 1
