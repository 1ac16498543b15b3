// The private fields of a ChildProc. One source file of a program may include
// this: an explicit instantiation may name private members, and occurs once.

#pragma once

#include <tuple>

#include "launcher/ChildProc.h"

enum ChildProcField { kPid, kRunning, kOwner, kName, kItem, kThread };

template <auto... kFields>
struct ChildProcFields {
  friend auto FieldsOf(ChildProc& object) {
    return std::tie(object.*kFields...);
  }
};
auto FieldsOf(ChildProc& object);
template struct ChildProcFields<&ChildProc::pid, &ChildProc::running,
                                &ChildProc::owner, &ChildProc::name,
                                &ChildProc::item, &ChildProc::thread>;

template <ChildProcField kField>
auto& FieldOf(ChildProc& object) {
  return std::get<kField>(FieldsOf(object));
}
