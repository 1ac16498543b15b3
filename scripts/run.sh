#!/usr/bin/env bash
# Sets up, builds, and runs the launcher until Ctrl-C.
#
# The launcher may send SIGKILL to its process group, so it gets a session of
# its own. The session's id also shows which processes the launcher and its
# programs leave behind; this script ends these and no others.
set -euo pipefail

usage='usage: scripts/run.sh [--user-home] [--stage DIR] [--despite-errors]
                      [ITEMS-FILE [OWNER]]

ITEMS-FILE   the items to run; by default examples/items.json
OWNER        the owner name; by default "example"
--user-home  use your own HOME for the log and the log level, not build/home
--stage DIR  do not build; run the launcher in DIR, with DIR/../home as HOME
--despite-errors  start even if launcher-check finds errors in ITEMS-FILE'

# The pause between two looks at the launcher, in seconds; the number of looks
# between two SIGTERMs; and the number after which it is killed.
readonly look_pause=0.2 looks_per_term=5 looks_until_kill=50

# The shell's exit statuses for a launcher that SIGTERM has stopped, that was
# killed, and that had no handler for SIGTERM yet.
readonly stopped=1 killed=137 terminated=143

# On macOS, ps does not show sessions. The launcher's process group, which has
# the same id as its session, takes their place.
if [[ $(uname) == Darwin ]]; then
  readonly session_column=pgid
else
  readonly session_column=sid
fi

# The ids of the live processes of the launcher's session.
session_members() {
  ps -A -o pid= -o "$session_column=" -o stat= |
    awk -v session="$launcher" '$2 == session && $3 !~ /^Z/ { print $1 }'
}

build() {
  "$root/scripts/bootstrap.sh" build
  (
    cd "$root"
    cmake --preset release -DBUILD_TESTING=OFF
    cmake --build --preset release --target launcher logger launcher-check \
      launcher-log launcher-status
    for component in daemon tools; do
      cmake --install build/release --prefix "$stage" --component "$component"
    done
  )
}

# Puts the example configuration where the launcher looks for it. Keeps an
# existing log level.
configure() {
  local sdk_name log_ini
  cp "$root/examples/qvxapi.ini" "$stage/Contents/Frameworks/"
  sdk_name=$(sed -n 's/^NAME=//p' "$root/examples/qvxapi.ini")
  log_ini="$home/Library/Application Support/$sdk_name/log.ini"
  log="$home/Library/Logs/$sdk_name/qvxlog/launcher.log"
  mkdir -p "$(dirname "$log_ini")"
  [[ -e $log_ini ]] || cp "$root/examples/log.ini" "$log_ini"
}

# Follows the log from its present end until this script ends, even if a signal
# goes to the whole group. Makes the log's directory, as the logger would,
# because tail notices changes only in a directory that exists.
follow_log() {
  local lines=0
  (umask 077 && mkdir -p "$(dirname "$log")")
  [[ ! -e $log ]] || lines=$(wc -l <"$log")
  (
    trap '' INT TERM HUP
    exec tail -n "+$((lines + 1))" -F "$log" 2>/dev/null
  ) &
  tail=$!
}

# Shows the findings of launcher-check. Ends the script if the file has errors.
check_items() {
  local check=$stage/Contents/MacOS/launcher-check
  [[ -x $check ]] || return 0
  "$check" "$items" && return
  [[ $despite_errors == no ]] || return 0
  echo 'The launcher is not started because of these errors. To start it' \
    'anyway, use --despite-errors.'
  exit 1
}

# Shows the history of the items since the start.
show_table() {
  local reader=$stage/Contents/MacOS/launcher-log
  [[ ! -x $reader || ! -e $log ]] || "$reader" --since "$started" "$log" ||
    true
}

# A background job of a script ignores SIGINT and SIGQUIT, and the launcher's
# programs would inherit that.
start_launcher() {
  HOME=$home PERL_BADLANG=0 perl -MPOSIX=setsid -e '
    setsid() > 0 or die "setsid: $!\n";
    $SIG{INT} = $SIG{QUIT} = "DEFAULT";
    delete $ENV{PERL_BADLANG};
    exec { $ARGV[0] } @ARGV or die "$ARGV[0]: $!\n";
  ' "$stage/Contents/MacOS/launcher" "$owner" "$items" &
  launcher=$!
}

# Waits for the launcher's end and puts its exit status into `status`. Repeats
# SIGTERM, because the launcher forgets one that comes before it waits.
await_end() {
  local looks=0
  while kill -0 "$launcher"; do
    if [[ $stopping == yes ]]; then
      ((looks % looks_per_term != 0)) || kill -TERM "$launcher" || true
      if ((++looks == looks_until_kill)); then
        echo 'The launcher does not end; killing it.'
        kill -KILL "$launcher" || true
      fi
    fi
    sleep "$look_pause" || true
  done
  status=0
  wait "$launcher" || status=$?
}

# If a program cannot be executed, forked children of the launcher go on in its
# place, and programs may leave processes, too. These may still be multiplying.
end_leftovers() {
  local looks members
  for ((looks = 0; looks < looks_until_kill; ++looks)); do
    members=$(session_members)
    if [[ -z $members ]]; then
      echo 'No process of its session is left.'
      return
    fi
    echo "Killing the processes that it left: ${members//$'\n'/ }"
    # shellcheck disable=SC2086  # One argument an id.
    kill -KILL $members 2>/dev/null || true
    sleep "$look_pause" || true
  done
  echo "These processes could not be killed: ${members//$'\n'/ }"
  exit 1
}

report() {
  echo "The launcher has ended with status $status."
  case $status in
    0)
      echo 'It could not start: the items file cannot be read, is empty, or' \
        'has errors. The log mentions only the last of these reasons.'
      ;;
    "$killed")
      echo 'SIGKILL ended it. The launcher may send SIGKILL to itself if an' \
        'item has no program, or if two items have the same name.'
      ;;
    "$terminated") echo 'SIGTERM ended it before it could handle the signal.' ;;
  esac
}

despite_errors=no
stage=
user_home=no
while [[ ${1-} == -* ]]; do
  case $1 in
    --despite-errors) despite_errors=yes ;;
    --user-home) user_home=yes ;;
    --stage)
      stage=${2:?"$usage"}
      shift
      ;;
    *)
      echo "$usage" >&2
      exit 2
      ;;
  esac
  shift
done

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
items=${1-$root/examples/items.json}
owner=${2-example}
if [[ -z $stage ]]; then
  stage=$root/build/stage
  build
else
  stage=$(cd "$stage" && pwd)
fi
home=$(dirname "$stage")/home
[[ $user_home == no ]] || home=$HOME
configure

check_items
started=$(date -u +%Y-%m-%dT%H:%M:%S)

stopping=no
trap 'stopping=yes' INT TERM HUP
follow_log
start_launcher
echo "
The launcher runs as process $launcher, for the owner \"$owner\".
Items:  $items
Home:   $home
Log:    $log
Ctrl-C stops it. The log from here on:
"
# Hides the shell's messages about jobs that a signal has ended.
await_end 2>/dev/null
sleep 1 || true  # tail may be a second late.
{ kill -KILL "$tail" || true; wait "$tail" || true; } 2>/dev/null
echo
report
end_leftovers
echo
show_table
[[ $stopping == yes && ($status == "$stopped" || $status == "$terminated") ]]
