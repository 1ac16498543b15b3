// When preloaded, this gives every thread the C library's default attributes,
// as if the launcher set none.

#include <pthread.h>

#include <cerrno>

extern "C" [[gnu::visibility("default")]] int pthread_setattr_default_np(
    const pthread_attr_t*) noexcept {
  return ENOTSUP;
}
