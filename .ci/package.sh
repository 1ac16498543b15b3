#!/usr/bin/env bash
# Makes the Debian package and installs it in a system of its own that holds
# Debian's essential packages, systemd, and the package's dependencies. Runs the
# launcher there, by hand and as a unit of systemd. Checks launchd's file, too.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly out=build/package
readonly root=$PWD/$out/root
readonly tree=/usr/lib/tamrel-launcher

skip() {
  echo "skipped ${0##*/}: $1"
  exit 0
}

fail() {
  echo "$1"
  exit 1
}

check_launchd_agent() {
  xmllint --noout --nonet "$1"
  python3 - "$1" << 'END'
import os
import plistlib
import subprocess
import sys
import tempfile

with open(sys.argv[1], "rb") as file:
    agent = plistlib.load(file)
assert sys.argv[1].endswith(f"/{agent['Label']}.plist")
shell, option, script, folder, owner, items = agent["ProgramArguments"]
assert folder.startswith("/") and items.startswith("/")
with tempfile.TemporaryDirectory() as place:
    for name in ("launcher-check", "launcher"):
        os.symlink("/bin/echo", f"{place}/{name}")
    command = [shell, option, script, place, owner, "items"]
    assert subprocess.check_output(command, text=True).endswith(
        f"items\n{owner} items\n")
    os.remove(f"{place}/launcher-check")
    os.symlink("/bin/false", f"{place}/launcher-check")
    assert subprocess.run(command, stdout=subprocess.PIPE).stdout == b""
assert agent["KeepAlive"] == {"Crashed": True}
assert agent["ExitTimeOut"] == 120
END
}

# make_package SOURCE BUILD
make_package() {
  cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DBUILD_TESTING=OFF -DLAUNCHER_WERROR=ON > /dev/null
  cmake --build "$2"
  rm -f "$2"/*.deb
  (cd "$2" && cpack > /dev/null)
}

# Builds the package again in another folder, without a compiler cache. The
# result must be the same, byte for byte.
check_reproducible() {
  local -x CCACHE_DISABLE=1
  rm -rf "$out/again"
  mkdir -p "$out/again/source"
  git ls-files -z | xargs -0 cp --parents -t "$out/again/source"
  make_package "$out/again/source" "$out/again/build"
  cmp "$out"/*.deb "$out"/again/build/*.deb ||
    fail "the package differs when it is built in another folder"
}

check_policy() {
  dpkg-deb --info "$out"/*.deb
  lintian --allow-root --fail-on error,warning "$out"/*.deb
}

check_contents() {
  diff - <(dpkg-deb --fsys-tarfile "$out"/*.deb | tar -t | grep -v '/$' | sort) \
    << END || fail "the package's content is not as expected"
./usr/bin/launcher
./usr/bin/launcher-check
./usr/bin/launcher-log
./usr/bin/launcher-status
./usr/lib/systemd/user/tamrel-launcher@.service
.$tree/Contents/Frameworks/liblogger.so.1
.$tree/Contents/MacOS/launcher
.$tree/Contents/MacOS/launcher-check
.$tree/Contents/MacOS/launcher-log
.$tree/Contents/MacOS/launcher-status
.$tree/Contents/Resources/items.schema.json
./usr/share/doc/tamrel-launcher/changelog.gz
./usr/share/doc/tamrel-launcher/copyright
./usr/share/doc/tamrel-launcher/examples/items.json
./usr/share/doc/tamrel-launcher/examples/log.ini
./usr/share/doc/tamrel-launcher/examples/qvxapi.ini
./usr/share/lintian/overrides/tamrel-launcher
./usr/share/man/man1/launcher-check.1.gz
./usr/share/man/man1/launcher-log.1.gz
./usr/share/man/man1/launcher-status.1.gz
./usr/share/man/man5/launcher-items.5.gz
./usr/share/man/man8/launcher.8.gz
END
}

# Passes further options to mmdebstrap.
make_system() {
  local codename sources
  codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
  sources=$(find /etc/apt/sources.list /etc/apt/sources.list.d -type f \
    \( -name '*.list' -o -name '*.sources' \) 2> /dev/null || true)
  rm -rf "$root"
  # shellcheck disable=SC2086
  unshare --mount mmdebstrap --quiet --variant=essential "$@" \
    "$codename" "$root" $sources
}

make_root() {
  make_system --include="systemd,$(echo "$PWD/$out"/*.deb)" \
    --hook-dir=/usr/share/mmdebstrap/hooks/file-mirror-automount && return
  make_system --simulate ||
    skip "installing the package needs Debian's packages"
  fail "the package cannot be installed"
}

# try_in_system SCRIPT: the launcher kills its programs, and sometimes more, so
# it gets processes and a session of its own. Only SIGKILL ends unshare before
# its child.
try_in_system() {
  cp ".ci/$1" "$root/"
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C \
    timeout --signal=KILL 60 unshare --pid --mount --fork --kill-child \
    --root="$root" --mount-proc setsid --wait "/$1"
}

scripts/bootstrap.sh cross || skip "what it needs cannot be installed"
check_launchd_agent packaging/launchd/tamrel.launcher.alpha.plist
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH
make_package . "$out"
check_contents
check_policy
check_reproducible
[ "$(id -u)" = 0 ] || skip "installing the package needs root"
make_root
try_in_system try-package.sh
try_in_system try-unit.sh
echo "The Debian package is as expected."
