#include "launcher/ThreadStacks.h"

int CreateThread(pthread_t* thread, void* (*body)(void*), void* argument) {
  return pthread_create(thread, nullptr, body, argument);
}

void GuardThreadStack() {}
