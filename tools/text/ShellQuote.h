// Arguments as one would type them in a shell.

#pragma once

#include <string>
#include <string_view>
#include <vector>

// A printable word that a shell reads as `text`: bare if nothing needs quoting,
// else in single quotes, or in the form $'...' of bash, zsh and ksh if some
// bytes are not printable.
//
//   a b              gives  'a b'
//   it's             gives  'it'\''s'
//   a<line feed>b    gives  $'a\012b'
//   (nothing)        gives  ''
std::string ShellQuoted(std::string_view text);

// The words of `vector`, with one blank between them.
std::string ShellQuoted(const std::vector<std::string>& vector);
