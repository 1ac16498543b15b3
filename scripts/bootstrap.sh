#!/usr/bin/env bash
# Installs what is missing to build this project, to test it, or to check it.
set -euo pipefail

usage='usage: scripts/bootstrap.sh build|test|check|cross

build  what compiling and running the launcher needs
test   that, and what its tests need
check  that, and what the checks on the source need
cross  what test installs, and what building for macOS and packaging need'

# What needs it, the Debian and Ubuntu package, the Homebrew formula ("-" where
# the system brings it).
packages='
build  g++             -
build  cmake           cmake
build  ninja-build     ninja
build  pkg-config      pkgconf
build  libjsoncpp-dev  jsoncpp
build  libcli11-dev    cli11
build  procps          -
test   libgtest-dev    googletest
test   mandoc          -
check  clang           -
check  libclang-rt-dev  -
check  clang-format    clang-format
check  clang-tidy      -
check  gcovr           gcovr
check  llvm            llvm
check  npm             node
check  shellcheck      shellcheck
cross  dpkg-dev        -
cross  libxml2-utils   -
cross  llvm            -
cross  mmdebstrap      -
cross  python3         -
cross  systemd         -
'

# The names in column $1 of the packages that the purpose asks for.
wanted() {
  awk -v sets="$sets" -v column="$1" \
    'NF && index(sets, $1) && $column != "-" { print $column }' <<<"$packages"
}

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "There is no sudo here. As root: $*" >&2
    exit 1
  fi
}

# As the package of that name, or as a command of that name from elsewhere.
is_installed() {
  command -v "$1" >/dev/null ||
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

bootstrap_debian() {
  local package
  local missing=()
  for package in $(wanted 2); do
    is_installed "$package" || missing+=("$package")
  done
  [[ ${#missing[@]} -gt 0 ]] || return 0
  echo "Installing with apt-get: ${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -qq --no-install-recommends "${missing[@]}"
}

bootstrap_macos() {
  if ! command -v brew >/dev/null; then
    echo 'Homebrew is needed first: https://brew.sh' >&2
    exit 1
  fi
  local formula
  local missing=()
  for formula in $(wanted 3); do
    brew list --versions "$formula" >/dev/null || missing+=("$formula")
  done
  if [[ ${#missing[@]} -gt 0 ]]; then
    echo "Installing with brew: ${missing[*]}"
    brew install "${missing[@]}"
  fi
  # No C++20 program can be linked with this one release.
  if [[ $(brew list --versions jsoncpp) == *' 1.9.7'* ]]; then
    echo 'Upgrading with brew: jsoncpp'
    brew upgrade jsoncpp
  fi
}

case ${1-} in
  build) sets='build' ;;
  test) sets='build test' ;;
  check) sets='build test check' ;;
  cross) sets='build test cross' ;;
  *)
    echo "$usage" >&2
    exit 2
    ;;
esac

if [[ $(uname) == Darwin ]]; then
  bootstrap_macos
elif command -v apt-get >/dev/null; then
  bootstrap_debian
else
  echo "This system has no apt-get. The tools are needed all the same:" \
    "$(wanted 2 | tr '\n' ' ')" >&2
fi
