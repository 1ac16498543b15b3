#!/usr/bin/env bash
# Sets up, builds, and runs the launcher until Ctrl-C.
#
# The launcher may send SIGKILL to its process group, so it gets a session of
# its own. The session's id also shows which processes the launcher and its
# programs leave behind; this script ends these and no others.
set -euo pipefail

usage='usage: scripts/run.sh [--user-home] [--stage DIR] [--despite-errors]
                      [ITEMS-FILE [OWNER]]

ITEMS-FILE   what to run; examples/items.json when it is left out
OWNER        the owner name; "example" when it is left out
--user-home  keep log and log level in your own HOME, not in build/home
--stage DIR  run what is staged in DIR (with DIR/../home as HOME), do not build
--despite-errors  start also when launcher-check finds errors in ITEMS-FILE'

# The pause between two looks at the launcher, in seconds; the number of looks
# between two SIGTERMs; and the number after which it is killed.
readonly look_pause=0.2 looks_per_term=5 looks_until_kill=50

# The shell's exit statuses of a launcher that SIGTERM has stopped, of one that
# was killed, and of one that did not handle SIGTERM yet.
readonly stopped=1 killed=137 terminated=143

# On macOS, ps does not show sessions; the launcher's process group, which begins
# as its session does, takes their place.
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

# Puts the example configuration where the launcher looks for it. A log level
# that is already there is left alone.
configure() {
  local sdk_name log_ini
  cp "$root/examples/qvxapi.ini" "$stage/Contents/Frameworks/"
  sdk_name=$(sed -n 's/^NAME=//p' "$root/examples/qvxapi.ini")
  log_ini="$home/Library/Application Support/$sdk_name/log.ini"
  log="$home/Library/Logs/$sdk_name/qvxlog/launcher.log"
  mkdir -p "$(dirname "$log_ini")"
  [[ -e $log_ini ]] || cp "$root/examples/log.ini" "$log_ini"
}

# Follows the log from its present end until this script ends, even when a
# signal goes to the whole group. The log's directory is made here, as the
# logger would make it: tail learns of changes only in a directory that exists.
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

# Shows what the launcher will make of the items file. Ends the script when the
# file has errors.
check_items() {
  local check=$stage/Contents/MacOS/launcher-check
  [[ -x $check ]] || return 0
  "$check" "$items" && return
  [[ $despite_errors == no ]] || return 0
  echo 'The launcher is not started because of these errors. To start it all' \
    'the same, use --despite-errors.'
  exit 1
}

# Shows what became of the items since the start.
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

# Waits for the launcher's end and puts its exit status into `status`. The
# launcher does not remember a SIGTERM that comes before it waits, so this
# repeats it.
await_end() {
  local looks=0
  while kill -0 "$launcher"; do
    if [[ $stopping == yes ]]; then
      ((looks % looks_per_term != 0)) || kill -TERM "$launcher" || true
      if ((++looks == looks_until_kill)); then
        echo 'It does not end; killing it.'
        kill -KILL "$launcher" || true
      fi
    fi
    sleep "$look_pause" || true
  done
  status=0
  wait "$launcher" || status=$?
}

# When a program cannot be executed, forked children of the launcher go on in its
# place, and programs may leave processes, too. They may still be multiplying.
end_leftovers() {
  local looks members
  for ((looks = 0; looks < looks_until_kill; ++looks)); do
    members=$(session_members)
    if [[ -z $members ]]; then
      echo 'No process of its session is left.'
      return
    fi
    echo "Ending what it left behind: ${members//$'\n'/ }"
    # shellcheck disable=SC2086  # One argument an id.
    kill -KILL $members 2>/dev/null || true
    sleep "$look_pause" || true
  done
  echo "Left behind, and could not be ended: ${members//$'\n'/ }"
  exit 1
}

report() {
  echo "The launcher has ended with status $status."
  case $status in
    0)
      echo 'It could not start: the items file cannot be read, is empty, or is' \
        'malformed (then the log says so).'
      ;;
    "$killed")
      echo 'SIGKILL ended it. It sends that to itself when an item has no' \
        'program, or when two items have the same name.'
      ;;
    "$terminated") echo 'SIGTERM ended it before it had set itself up.' ;;
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
# The shell would report jobs that a signal has ended.
await_end 2>/dev/null
sleep 1 || true  # For tail, which may be a second behind.
{ kill -KILL "$tail" || true; wait "$tail" || true; } 2>/dev/null
echo
report
end_leftovers
echo
show_table
[[ $stopping == yes && ($status == "$stopped" || $status == "$terminated") ]]
