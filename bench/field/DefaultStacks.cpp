// Preloaded, this gives every thread the attributes that it would have if the
// launcher did nothing about them.

#include <pthread.h>

#include <cerrno>

extern "C" [[gnu::visibility("default")]] int pthread_setattr_default_np(
    const pthread_attr_t*) noexcept {
  return ENOTSUP;
}
