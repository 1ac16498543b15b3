#!/usr/bin/env bash
# Starts systemd's manager of the user's units, and takes the launcher's unit
# through its life. .ci/package.sh runs this in the system in which it has
# installed the package, with processes and mounts of its own.
set -euo pipefail

export XDG_RUNTIME_DIR=/run/user/0
readonly unit=tamrel-launcher@alpha.service
readonly items=$HOME/.config/tamrel-launcher/alpha.json

fail() {
  echo "$unit: $1"
  systemctl --user --no-pager status "$unit" || true
  exit 1
}

property() {
  systemctl --user show --value --property="$1" "$unit"
}

# expect WHEN STATE
expect() {
  local state
  state=$(property ActiveState)
  [ "$state" = "$2" ] || fail "$1 it is $state, not $2"
}

# expect_gone WHEN PROCESSES
expect_gone() {
  local process
  for process in $2; do
    ! kill -0 "$process" 2> /dev/null || fail "$1 it leaves process $process"
  done
}

processes() {
  cat "$group"/app.slice/*/"$unit/cgroup.procs" 2> /dev/null
}

# wait_until WHEN NUMBER: waits until the unit has that many processes.
wait_until() {
  for _ in {1..300}; do
    [ "$(processes | wc -l)" != "$2" ] || return 0
    sleep 0.1
  done
  fail "$1 it does not reach $2 processes"
}

# A manager controls the control group that it is started in, so it gets an
# empty one.
start_manager() {
  mount -t tmpfs none /run
  mount -t tmpfs none /sys
  mkdir -p "$XDG_RUNTIME_DIR" /run/systemd/system /sys/fs/cgroup
  mount -t cgroup2 none /sys/fs/cgroup || {
    echo "skipped ${0##*/}: systemd needs control groups"
    exit 0
  }
  group=$(mktemp -d /sys/fs/cgroup/launcher-XXXXXX)
  (echo $BASHPID > "$group/cgroup.procs" && exec /lib/systemd/systemd --user) &
  manager=$!
  until [ "$(systemctl --user is-system-running 2>&1)" = running ]; do
    kill -0 "$manager"
    sleep 0.1
  done
}

end_manager() {
  kill "$manager"
  wait "$manager" || true
  find "$group" -depth -type d -exec rmdir {} \;
}

start_manager
trap end_manager EXIT
# For a mistake in the unit, systemd-analyze prints a message but returns 0.
complaints=$(systemd-analyze --user --man=no verify "$unit" 2>&1) || true
[ -z "$complaints" ] || fail "$complaints"

systemctl --user start "$unit"
expect "without an items file" inactive

mkdir -p "${items%/*}"
echo '{"0": {"name": "early", "program": "/bin/touch", "argc": 1,
  "args": {"0": "/early"}}, "1": {"name": "no program"}}' > "$items"
systemctl --user start "$unit"
expect "with an error in the items file" inactive
[ ! -e /early ] || fail "with an error in the items file it starts an item"

cat > "$items" << 'END'
{"0": {"name": "stay", "program": "/bin/sh", "argc": 2,
       "args": {"0": "-c", "1": "trap '> /told' TERM; sleep 1000 & wait"}}}
END
systemctl --user enable --now "$unit" 2> /dev/null
expect "after its start" active
# The launcher, a shell and the shell's child.
wait_until "after its start" 3

# After a crash, systemd kills the children and starts the launcher again.
left=$(processes)
kill -KILL "$(property MainPID)"
until [ "$(property NRestarts)" = 1 ]; do sleep 0.1; done
wait_until "after a crash" 3
expect_gone "after a crash" "$left"

# A stopped launcher ends with 1, which is not a failure. Its children do not
# get the SIGTERM.
left=$(processes)
systemctl --user stop "$unit"
expect "after a stop" inactive
expect_gone "after a stop" "$left"
[ ! -e /told ] || fail "when it is stopped, its children get a SIGTERM"
