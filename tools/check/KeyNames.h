// The meaning of the keys of an items file.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The key of an item that `key` means: "program", say, for "Programm" and
// "command"; "" for a key that resembles none. A key of an item means itself.
std::string KeyMeantBy(const std::string& key);

// The number of an item or argument that `key` is: 10 for "10", but none for
// "01", "+1" or "x".
std::optional<std::uint64_t> IndexOf(const std::string& key);
