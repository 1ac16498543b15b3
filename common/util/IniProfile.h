// The INI profile reader: looks up one value in a small INI-style text file.
//
// What it reads, line by line (LF or CR LF; white space is that of `trim`):
//
//   [ Section ]    a header, when the trimmed line has at least 3 characters,
//                  begins with "[" and ends with "]"; the name is trimmed
//   key=value      an entry; no white space may stand before the "="; the value
//                  ends at the next "=" or at the end of the trimmed line
//
// A line of more than 2,047 bytes is read as several; what follows a NUL in one
// is lost. There are no comments. Names compare without regard to the case of
// ASCII letters. Only the first section of a name counts, and in it the first
// entry of a key. Any line in the section that begins with "[" ends it.

#pragma once

#include <string>

// Copies the value of `key` in `section` of the file `fileName`,
// NUL-terminated, into `buffer`, which holds `size` bytes, and returns true.
// When the file cannot be read, when section or key are missing, or when the
// value does not fit, it copies `defaultValue` instead and returns false.
//
// A text is copied whole or not at all, and no byte behind its terminator is
// touched; where neither text fits, `buffer` is left alone. A null `buffer` or
// a `size` of 0: false, and the file is not opened. A negative `size` admits
// every text: the caller vouches for the room.
//
// `section` is trimmed, `key` is not. Reads the file anew at each call. Throws
// only what the string library throws. Safe from any thread on distinct
// buffers.
//
//   [LOG]                     ("LOG", "LEVEL", "ERROR")
//   LEVEL=DEBUG               gives "DEBUG", true
//   LEVEL = DEBUG             gives "ERROR", false: the key is "LEVEL "
//   LEVEL=                    is passed over
//   LEVEL==3                  gives "", true
//   LEVEL=a=b                 gives "a", true
bool GetPrivateProfileString(std::string section, std::string key,
                             std::string defaultValue, char* buffer, int size,
                             std::string fileName);
