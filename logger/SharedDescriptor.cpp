#include "logger/SharedDescriptor.h"

#include <utility>

// Who comes while the descriptor is being replaced is counted for a moment,
// too; that harms nobody.
SharedDescriptor::Use::Use(SharedDescriptor* shared)
    : shared_(shared),
      granted_((shared->users_.fetch_add(1, std::memory_order_acquire) &
                kReplacing) == 0) {}

SharedDescriptor::Use::~Use() {
  shared_->users_.fetch_sub(1, std::memory_order_release);
}

bool SharedDescriptor::Replace(Descriptor descriptor, const FileState& state) {
  std::uint32_t nobody = 0;
  if (!users_.compare_exchange_strong(nobody, kReplacing,
                                      std::memory_order_acquire)) {
    return false;
  }
  descriptor_ = std::move(descriptor);
  state_ = state;
  users_.fetch_sub(kReplacing, std::memory_order_release);
  return true;
}
