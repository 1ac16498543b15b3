// Computes the result of GetPrivateProfileString in another way: cuts a file's
// whole content first into lines, and then into pieces by a stream.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ini_oracle {

// The value of `key` in `section`, or nothing.
std::optional<std::string> Find(std::string_view content,
                                std::string_view section, std::string_view key);

// Whether a text of `length` bytes is copied into a buffer of `size` bytes.
bool Fits(std::size_t length, int size);

}  // namespace ini_oracle
