// The long forms of the tests that have a short one.

#pragma once

#include <cstdlib>

// `soak` when the environment variable SOAK is set, as CTest does for what it
// labels "soak"; else `brief`.
template <class Value>
Value SoakOr(Value soak, Value brief) {
  return std::getenv("SOAK") != nullptr ? soak : brief;
}
