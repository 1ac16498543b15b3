#!/usr/bin/env bash
# hardening.sh BUILD-TYPE FILE...: checks that these programs and libraries are
# hardened as distributions build: against changed tables of calls, overrun
# buffers, overrun stacks and jumps into the middle of functions. In a Release
# build, standard calls that copy have to be checked, too.
set -euo pipefail

fail() {
  echo "$1"
  exit 1
}

check() {
  local file=$1 headers dynamic symbols code
  headers=$(readelf --wide --file-header --program-headers "$file")
  dynamic=$(readelf --wide --dynamic "$file")
  symbols=$(readelf --wide --dyn-syms "$file")
  code=$(objdump --disassemble --no-show-raw-insn "$file")
  [[ $headers == *'Type: '*DYN* ]] || fail "$file: has a fixed address"
  [[ $headers == *GNU_RELRO* && $dynamic == *BIND_NOW* ]] ||
    fail "$file: tables of calls can be written"
  [[ $headers =~ GNU_STACK\ .*\ RW\  ]] || fail "$file: the stack is executable"
  [[ $symbols == *__stack_chk_fail* ]] || fail "$file: no stack protector"
  [[ $code == *endbr64* ]] || fail "$file: no control-flow protection"
  [[ $build_type != Release || $symbols =~ __[a-z]+_chk[@\ ] ]] ||
    fail "$file: no checked copying"
}

build_type=$1
for file in "${@:2}"; do
  check "$file"
done
