#include <gtest/gtest.h>

#include "launcher/Messages.h"

namespace {

// Literal on purpose: users and other programs search logs for these texts.
TEST(Messages, KeepTheirWording) {
  EXPECT_STREQ(kReadDataMessage, "[LAUNCHER  ] Read data from %s");
  EXPECT_STREQ(kOpenFailedMessage, "[LAUNCHER  ] Failed to open file %s");
  EXPECT_STREQ(kFileEmptyMessage, "[LAUNCHER  ] Size of read %s is 0");
  EXPECT_STREQ(kReadFailedMessage, "[LAUNCHER  ] Failed to read data from %s");
  EXPECT_STREQ(kNamelessMessage, "[LAUNCHER  ] There is an item has no name.");
  EXPECT_STREQ(kParseFailedMessage,
               "[LAUNCHER  ] Error while parsing saved json string.");
  EXPECT_STREQ(kStartMessage, "[LAUNCHER  ] Start to fork %s");
  EXPECT_STREQ(kForkFailedMessage, "[LAUNCHER  ] Failed to fork %s");
  EXPECT_STREQ(kNoProgramMessage, "[LAUNCHER  ] program path of %s is empty");
  EXPECT_STREQ(kEndMessage,
               "[LAUNCHER  ] %s %d is killed. ret = %d, status = %d");
  EXPECT_STREQ(kEventSource, "Tamrel Launcher");
  EXPECT_STREQ(kWrongParametersEvent, "wrong parameters.");
}

}  // namespace
