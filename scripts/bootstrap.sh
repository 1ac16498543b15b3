#!/usr/bin/env bash
# Installs what is missing to build this project, to test it, or to check it.
set -euo pipefail

usage='usage: scripts/bootstrap.sh build|test|check|cross

build  what compiling and running the launcher needs
test   that, and what its tests need
check  that, and what the checks on the source need
cross  what test installs, and what building for macOS, packaging and making
       systems to try it in need'

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
test   binutils        -
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
cross  git             git
cross  libxml2-utils   -
cross  lintian         -
cross  llvm            -
cross  mmdebstrap      -
cross  python3         -
'

# The names in column $1 of the packages that the purpose asks for.
wanted() {
  awk -v sets="$sets" -v column="$1" \
    'NF && index(sets, $1) && $column != "-" { print $column }' <<<"$packages"
}

# As the package of that name, or as a command of that name from elsewhere.
is_installed() {
  command -v "$1" >/dev/null ||
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# With sudo where that works, else this says what root has to do.
install_debian() {
  local as_root=()
  [[ $EUID -eq 0 ]] || as_root=(sudo)
  echo "Installing with apt-get: $*"
  command -v "${as_root[0]-env}" >/dev/null &&
    "${as_root[@]}" apt-get update -qq &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -qq --no-install-recommends "$@" && return
  echo "
That needs root. The commands, for root to run:

apt-get update
apt-get install --no-install-recommends $*" >&2
  exit 1
}

bootstrap_debian() {
  local package
  local missing=()
  for package in $(wanted 2); do
    is_installed "$package" || missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] || install_debian "${missing[@]}"
}

bootstrap_macos() {
  if ! command -v brew >/dev/null; then
    echo 'Install Homebrew first: https://brew.sh' >&2
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
