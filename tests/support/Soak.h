// For tests that have a short and a long form.

#pragma once

#include <cstdlib>

// `soak` if the environment variable SOAK is set, as CTest does for tests with
// the label "soak"; otherwise `brief`.
template <class Value>
Value SoakOr(Value soak, Value brief) {
  return std::getenv("SOAK") != nullptr ? soak : brief;
}
