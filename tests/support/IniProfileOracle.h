// What GetPrivateProfileString has to find, worked out from a file's whole
// content in another way than the reader's: the content is cut into lines
// first, the lines into pieces by a stream.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ini_oracle {

// The value of `key` in `section`, or nothing.
std::optional<std::string> Find(std::string_view content,
                                std::string_view section, std::string_view key);

// Whether a text of `length` bytes is copied into a buffer said to hold `size`.
bool Fits(std::size_t length, int size);

}  // namespace ini_oracle
