// Our own error codes. They are thrown by value, and are not derived from
// std::exception.

#pragma once

enum AERROR : int {
  // A path names a member that does not exist.
  AERROR_NOT_FOUND = 4,
  // A text is not JSON.
  AERROR_PARSE_JSON = 6001,
};
