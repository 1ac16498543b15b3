#!/usr/bin/env bash
# Runs the README's two commands on a fresh Debian that has git and sudo besides
# its essential packages: as root in a chroot whose "/" is not a mount point, as
# package builders use, and as an ordinary user in a system of its own.
#
#   .ci/newcomer.sh CODENAME
#
# The fresh system and the packages fetched for it are kept for a week below
# ~/.cache, where other clones find them, too.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly codename=${1:?"usage: .ci/newcomer.sh CODENAME"}
readonly packages=git,mount,passwd,sudo days_kept=7
readonly caches=${XDG_CACHE_HOME:-$HOME/.cache}/tamrel-launcher
readonly cache=$caches/$codename-$packages
readonly out=$PWD/build/newcomer
readonly root=$out/root

skip() {
  echo "skipped ${0##*/}: $1"
  exit 0
}

# The machine's own package sources, for the other release.
write_sources() {
  local here file
  here=$(. /etc/os-release && echo "$VERSION_CODENAME")
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
    grep -qsE "[[:space:]]$here([[:space:]]|\$)" "$file" || continue
    sed "s/\\b$here\\b/$codename/g" "$file" > "$out/${file##*/}"
    echo "$out/${file##*/}"
  done
}

make_system() {
  find "$cache" -maxdepth 0 -mtime "+$days_kept" -exec rm -rf {} \; \
    2> /dev/null || true
  [ ! -e "$cache/system.tar" ] || return 0
  mkdir -p "$cache/archives/partial"
  local sources
  sources=$(write_sources)
  # shellcheck disable=SC2086  # One argument for each file.
  unshare --mount mmdebstrap --quiet --variant=apt --include="$packages" \
    "$codename" "$cache/new.tar" $sources ||
    skip "the packages of $codename are not available"
  mv "$cache/new.tar" "$cache/system.tar"
}

# A fresh system with a clone of this repository in HOME, a directory in it.
unpack_system() {
  rm -rf --one-file-system "$root"
  mkdir -p "$root"
  tar -C "$root" -xpf "$cache/system.tar"
  cp -L /etc/resolv.conf "$root/etc/"
  git clone --quiet . "$root/$1/launcher"
}

# Runs a command in the system, with processes and mounts of its own; HOW is
# "chroot", or "pivot", where "/" is a mount point.
inside() {
  env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    HOME=/root LC_ALL=C.UTF-8 timeout --signal=KILL 3600 \
    unshare --mount --pid --fork --kill-child setsid --wait bash -euc '
      root=$1 archives=$2 how=$3
      shift 3
      [ "$how" = chroot ] || mount --bind "$root" "$root"
      mount -t proc proc "$root/proc"
      mount --rbind /dev "$root/dev"
      mount --bind "$archives" "$root/var/cache/apt/archives"
      cd "$root"
      [ "$how" = pivot ] || exec chroot . "$@"
      mkdir -p old
      pivot_root . old
      exec /bin/sh -euc "umount -l /old; cd /; exec \"\$@\"" sh "$@"
    ' bash "$root" "$cache/archives" "$@"
}

write_newcomer() {
  cat > "$root/newcomer" << 'END'
cd ~/launcher
scripts/test.sh
scripts/run.sh > ~/run.log 2>&1 &
until grep -q 'failing .* is killed.* status = 768' ~/run.log; do
  kill -0 $!
  sleep 0.5
done
kill $!
wait $! || { cat ~/run.log; exit 1; }
! grep 'warning:' ~/run.log
END
}

# Shows the output of the commands if they fail. A compiler warning is a failure
# here.
as_newcomer() {
  write_newcomer
  if ! "${@:2}" > "$out/$1.log" 2>&1 ||
    grep 'warning:' "$out/$1.log"; then
    grep -vE '^ +Start +[0-9]+: | Passed ' "$out/$1.log" | tail -n 200
    echo "failed: as $1 on $codename (all output: $out/$1.log)"
    exit 1
  fi
  echo "As $1 on $codename:"
  sed -n '/% tests passed/p; /^Skipped tests/,$p' "$out/$1.log"
}

[ "$(id -u)" = 0 ] || skip 'making a system needs root'
scripts/bootstrap.sh cross || skip 'what it needs cannot be installed'
mkdir -p "$out"
make_system

unpack_system root
as_newcomer root inside chroot sh -eu /newcomer

unpack_system home
inside pivot sh -euc '
  useradd --create-home --home-dir /home/ann --shell /bin/bash ann
  mv /home/launcher /home/ann/
  chown -R ann: /home/ann
  echo "ann ALL=(ALL) NOPASSWD: ALL" > /etc/sudoers.d/ann'
as_newcomer ann inside pivot su - ann -c 'sh -eu /newcomer'
rm -rf --one-file-system "$root"
