// A logger library that lacks InitLogger.

extern "C" __attribute__((visibility("default"))) int GetLogger(int,
                                                                const char*,
                                                                int, void**) {
  return 0;
}
