// Arguments as one would type them to a shell.

#pragma once

#include <string>
#include <string_view>
#include <vector>

// A word that a shell reads as `text`, and that a terminal shows as it stands:
// bare where nothing needs quoting, in single quotes, or, with bytes that are
// not printable, in the form $'...' that bash, zsh and ksh know.
//
//   a b              gives  'a b'
//   it's             gives  'it'\''s'
//   a<line feed>b    gives  $'a\012b'
//   (nothing)        gives  ''
std::string ShellQuoted(std::string_view text);

// The words of `vector`, one blank between them.
std::string ShellQuoted(const std::vector<std::string>& vector);
