#!/usr/bin/env bash
# Builds everything for macOS 10.15 on x86-64, on Linux, makes the package, and
# checks both. It runs none of the programs: there is no Mac here.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C
. .ci/zig.sh

readonly out=build/ZigMacos
readonly stage=$out/unpacked
readonly system=/usr/lib/libSystem.B.dylib

# Calls that Linux has and macOS 10.15 lacks.
linux_only='accept4|close_range|dup3|epoll_.*|eventfd|execveat|getauxval'
linux_only+='|getdents64|gettid|inotify_.*|memfd_create|pidfd_.*|pipe2|ppoll'
linux_only+='|prctl|pthread_setattr_default_np|sched_.*affinity|sendfile64'
linux_only+='|signalfd|sigtimedwait|sigwaitinfo|timerfd_.*|unshare'

expect() {
  local what=$1 expected=$2 actual=$3
  if [ "$expected" != "$actual" ]; then
    echo "$what"
    diff <(echo "$expected") <(echo "$actual") || exit 1
  fi
}

undefined_symbols() {
  llvm-nm --undefined-only --just-symbol-name "$1" | sort
}

# Every symbol of every file comes from the system's own library. Only tests are
# linked to libraries of this tree.
check_binary() {
  local file=$1 type=$2
  local header version
  header=$(llvm-objdump --macho --private-header "$file")
  version=$(llvm-objdump --macho --private-headers "$file")
  expect "$file: header" "MH_MAGIC_64 X86_64 $type" \
    "$(awk '/MH_MAGIC/ { print $1, $2, $5 }' <<< "$header")"
  expect "$file: platform" "platform macos minos 10.15" "$(
    awk '/LC_BUILD_VERSION/ { found = 1 }
         found && /platform|minos/ { print $1, $2 }' <<< "$version" |
      head -n 2 | paste -s -d ' ')"
  expect "$file: linked libraries" "$system" "$(
    llvm-objdump --macho --dylibs-used "$file" |
      awk '/compatibility/ { print $1 }' | grep -v '^@rpath/')"
  expect "$file: symbols that macOS lacks" "" \
    "$(undefined_symbols "$file" | comm -23 - "$out/known-symbols")"
  expect "$file: calls of Linux" "" \
    "$(undefined_symbols "$file" | grep -xE "_($linux_only)" || true)"
}

check_contents() {
  expect "the package's content" "$(
    cat << 'END'
Contents/Frameworks/liblogger.1.dylib
Contents/MacOS/launcher
Contents/MacOS/launcher-check
Contents/MacOS/launcher-log
Contents/MacOS/launcher-status
Contents/Resources/copyright
Contents/Resources/items.schema.json
Contents/Resources/man/man1/launcher-check.1
Contents/Resources/man/man1/launcher-log.1
Contents/Resources/man/man1/launcher-status.1
Contents/Resources/man/man5/launcher-items.5
Contents/Resources/man/man8/launcher.8
Contents/Resources/notices/jsoncpp
Contents/Resources/notices/libc++
Contents/Resources/notices/libc++abi
END
  )" "$(cd "$1" && find . ! -type d -printf '%P\n' | sort)"
}

# Each notice names its library.
check_notices() {
  local notice
  for notice in "$1"/Contents/Resources/notices/*; do
    expect "$notice" "$notice" "$(grep -liF "${notice##*/}" "$notice" || true)"
  done
}

check_product() {
  local programs=("$1"/Contents/MacOS/*)
  local logger=$1/Contents/Frameworks/liblogger.1.dylib
  local program
  for program in "${programs[@]}"; do
    check_binary "$program" EXECUTE
    # The launcher loads the library at run time, relative to its own path.
    expect "$program: the logger library" "" \
      "$(llvm-objdump --macho --dylibs-used "$program" | grep liblogger ||
        true)"
  done
  check_binary "$logger" DYLIB
  expect "$logger: install name" @rpath/liblogger.1.dylib \
    "$(llvm-objdump --macho --dylib-id "$logger" | tail -n 1)"
  # This linker does not support lists of exports, so there are two symbols of
  # its own and, from libc++, the operators new and delete.
  expect "$logger: exports" "_GetLogger _InitLogger" \
    "$(llvm-nm --extern-only --defined-only --just-symbol-name "$logger" |
      grep -vE '^(___dso_handle|__mh_dylib_header|__Z(n[aw]|d[al])P?[vm].*)$' |
      sort | paste -s -d ' ')"
  expect "paths of Linux" "" \
    "$(strings --all "${programs[@]}" "$logger" |
      grep -E '^/(proc|sys|dev)/' || true)"
  expect "paths of this machine" "" \
    "$(strings --all "${programs[@]}" "$logger" | grep -F "$PWD" || true)"
}

# docs/platforms.md describes every call of the product, except those that only
# touch memory and text.
check_documentation() {
  local call missing
  missing=$(
    find "$out"/{common,environment,launcher,logger} -name '*.o' -print0 |
      xargs -0 llvm-nm --undefined-only --just-symbol-name |
      sed -n 's/\$.*//; s/^_//p' | sort -u |
      grep -vE '^(_*Z|__|_Unwind_|mem|str|wcs|wmem|ceilf$|free$|malloc$)' |
      grep -vE '^(GetLogger|InitLogger|logger)$' |
      while read -r call; do
        grep -qF "\`$call\`" docs/platforms.md || echo "$call"
      done
  )
  expect "calls that docs/platforms.md does not describe" "" "$missing"
}

zig_build ZigMacos
# The library's symbols are allowed besides the system's: a test is linked to
# it.
{
  grep -oE '[_[:alnum:]$]+' "$zig_dir/lib/libc/darwin/libSystem.tbd"
  llvm-nm --extern-only --defined-only --just-symbol-name \
    "$out"/logger/*.1.dylib
} | sort -u > "$out/known-symbols"

rm -rf "$stage" "$out"/*.tar.gz
mkdir "$stage"
(cd "$out" && quietly package cpack)
tar -xzf "$out"/*.tar.gz -C "$stage" --strip-components=1
check_contents "$stage"
check_notices "$stage"
check_product "$stage"
check_documentation

find "$out" -path '*/CMakeFiles' -prune -o -path "$stage" -prune -o \
  -type f -perm -u+x -print |
  while read -r file; do
    case $file in
      *.dylib) check_binary "$file" DYLIB ;;
      *) check_binary "$file" EXECUTE ;;
    esac
  done
echo "The builds for macOS are as expected."
