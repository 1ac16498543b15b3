// The INI profile reader: looks up one value in a small INI-style text file.
//
// Lines end with LF or CR LF and are trimmed by `trim`. The reader knows:
//
//   [ Section ]    a header, with at least 3 characters from "[" to "]"; the
//                  name is trimmed
//   key=value      an entry; a space before the "=" belongs to the key, one
//                  after it to the value, which ends at the next "="
//
// A line longer than 2,047 bytes counts as several; a NUL ends a line's text.
// There are no comments. ASCII case does not matter in names. Only the first
// section of a name counts, and the first entry of a key in it. Any line that
// begins with "[" ends the section.

#pragma once

#include <string>

// Copies the value of `key` in `section`, NUL-terminated, into `buffer` of
// `size` bytes and returns true. If the file cannot be read, the section or the
// key is missing, or the value does not fit, copies `defaultValue` and returns
// false.
//
// Copies a text whole, or not at all when it does not fit, and changes no other
// byte. Returns false without opening the file if `buffer` is null or `size` is
// 0. A negative `size` admits every text: the caller vouches for the room.
// `section` is trimmed, `key` is not.
//
// Reads the file at each call. Throws only exceptions of the string library.
// Safe from any thread on distinct buffers.
//
//   [LOG]                     ("LOG", "LEVEL", "ERROR")
//   LEVEL=DEBUG               gives "DEBUG", true
//   LEVEL = DEBUG             gives "ERROR", false: the key is "LEVEL "
//   LEVEL=                    is skipped
//   LEVEL==3                  gives "", true
//   LEVEL=a=b                 gives "a", true
bool GetPrivateProfileString(std::string section, std::string key,
                             std::string defaultValue, char* buffer, int size,
                             std::string fileName);
