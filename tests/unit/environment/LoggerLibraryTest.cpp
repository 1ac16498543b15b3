#include <gtest/gtest.h>

#include <cerrno>

#include "environment/LoggerLibrary.h"

namespace {

TEST(LoggerLibrary, HasNoLoggerBeforeItIsLoaded) {
  ILog* log = nullptr;
  EXPECT_EQ(GetLogger(2, "launcher", LOGLEVEL_ERROR, &log), ENOENT);
  EXPECT_EQ(log, nullptr);
}

TEST(LoggerLibrary, CannotBeLoadedWithoutItsFile) {
  EXPECT_EQ(InitLogger("/"), ENOENT);
}

}  // namespace
