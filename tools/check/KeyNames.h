// The meaning of the keys of an items file.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The key of an item that `key` probably means: "program" for "Programm" and
// "command", for example; "" if it resembles none. A key of an item means
// itself.
std::string KeyMeantBy(const std::string& key);

// The number of an item or argument in `key`: 10 for "10", but nullopt for
// "01", "+1" or "x".
std::optional<std::uint64_t> IndexOf(const std::string& key);
