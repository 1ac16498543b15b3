// A logger library that lacks GetLogger.

extern "C" __attribute__((visibility("default"))) int InitLogger(const char*) {
  return 0;
}
