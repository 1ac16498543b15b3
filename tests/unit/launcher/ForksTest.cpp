#include <gtest/gtest.h>

#include "launcher/Forks.h"
#include "tests/support/ForkedChild.h"

namespace {

TEST(Forks, AreCounted) {
  const int depth = ForkDepth();
  EXPECT_EQ(InForkedChild([&] {
              if (ForkDepth() != depth + 1) return 1;
              return InForkedChild([&] { return ForkDepth() - depth; });
            }),
            2);
  EXPECT_EQ(ForkDepth(), depth);
}

TEST(Forks, InheritTheAnnouncementOfAnExit) {
  EXPECT_FALSE(IsExiting());
  EXPECT_EQ(InForkedChild([] {
              if (IsExiting()) return 1;
              AnnounceExit();
              if (!IsExiting()) return 2;
              return InForkedChild([] { return IsExiting() ? 0 : 3; });
            }),
            0);
  EXPECT_FALSE(IsExiting());
}

}  // namespace
