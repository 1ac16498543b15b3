// The INI profile reader: looks up one value in a small INI-style text file.
//
//   [ Section ]    a header, with at least 3 characters from "[" to "]"; the
//                  name is trimmed
//   key=value      an entry; a space before the "=" belongs to the key, one
//                  after it to the value; the next "=" ends the value
//
// Lines end with LF or CR LF and are trimmed by `trim`. A line longer than
// 2,047 bytes counts as several; a NUL ends a line's text. There are no
// comments. ASCII case does not matter in names. Only the first section with a
// given name counts, up to the next line that begins with "[". In it, only the
// first entry with a given key and a value counts.

#pragma once

#include <string>

// Copies the value of `key` in `section`, NUL-terminated, into `buffer` of
// `size` bytes and returns true. If there is none, or it does not fit, copies
// `defaultValue` and returns false. Copies nothing of a text that does not fit.
//
// Returns false without opening the file if `buffer` is null or `size` is 0. A
// negative `size` admits every text. `section` is trimmed, `key` is not. Reads
// the file at each call; a signal does not end the reading. Throws only
// exceptions of the string library. Safe from any thread on distinct buffers.
//
//   LEVEL=DEBUG    gives "DEBUG" for the key "LEVEL"
//   LEVEL =DEBUG   gives the default: the key is "LEVEL "
//   LEVEL=         is skipped; LEVEL==3 gives ""
bool GetPrivateProfileString(std::string section, std::string key,
                             std::string defaultValue, char* buffer, int size,
                             std::string fileName);
