#!/usr/bin/env bash
# Installs the missing tools to build, test or check this project.
set -euo pipefail

usage='usage: scripts/bootstrap.sh build|test|check|cross

Installs the missing tools
build  to compile and run the launcher
test   like build, and to run its tests
check  like test, and to check the source
cross  like test, and to build for macOS, make packages, and make systems to
       try them in'

# The purpose, the Debian and Ubuntu package, and the Homebrew formula ("-" if
# the system has the tool).
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

# Whether there is a package, or a command from elsewhere, of that name.
is_installed() {
  command -v "$1" >/dev/null ||
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# Uses sudo if necessary. If that fails, prints the commands for root.
install_debian() {
  local as_root=()
  [[ $EUID -eq 0 ]] || as_root=(sudo)
  echo "Installing with apt-get: $*"
  command -v "${as_root[0]-env}" >/dev/null &&
    "${as_root[@]}" apt-get update -qq &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -qq --no-install-recommends "$@" && return
  echo "
This needs root. As root, run:

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
  # No C++20 program links with this release.
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
  echo "This system has no apt-get. Install these tools by hand:" \
    "$(wanted 2 | tr '\n' ' ')" >&2
fi
