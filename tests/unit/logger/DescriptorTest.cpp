#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "logger/Descriptor.h"

namespace {

using Use = SharedDescriptor::Use;

Descriptor OpenNull() { return Descriptor(open("/dev/null", O_WRONLY)); }

bool IsOpen(int number) { return fcntl(number, F_GETFD) >= 0; }

class SharedDescriptorTest : public testing::Test {
 protected:
  // Returns the number of the descriptor that it puts there.
  int Put(off_t bytes) {
    Descriptor descriptor = OpenNull();
    const int number = descriptor.number();
    EXPECT_TRUE(shared_.Replace(std::move(descriptor), {1, 2, bytes, 1}));
    return number;
  }

  SharedDescriptor shared_;
};

TEST_F(SharedDescriptorTest, IsUsedByManyAtOnce) {
  const int number = Put(3);
  const Use one(&shared_);
  const Use other(&shared_);
  ASSERT_TRUE(one.IsGranted());
  ASSERT_TRUE(other.IsGranted());
  EXPECT_EQ(one.number(), number);
  EXPECT_EQ(other.number(), number);
  EXPECT_EQ(one.state().bytes, 3);
}

TEST_F(SharedDescriptorTest, ClosesTheOneThatItReplaces) {
  const int first = Put(1);
  const int second = Put(2);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_TRUE(IsOpen(second));
  EXPECT_EQ(Use(&shared_).number(), second);
  EXPECT_EQ(Use(&shared_).state().bytes, 2);
}

TEST_F(SharedDescriptorTest, IsNotReplacedWhileItIsUsed) {
  const int number = Put(1);
  auto one = std::make_unique<Use>(&shared_);
  auto other = std::make_unique<Use>(&shared_);
  EXPECT_FALSE(shared_.Replace(OpenNull(), {}));
  one.reset();
  EXPECT_FALSE(shared_.Replace(OpenNull(), {}));
  EXPECT_EQ(other->number(), number);
  EXPECT_TRUE(IsOpen(number));
  other.reset();
  EXPECT_TRUE(shared_.Replace(OpenNull(), {}));
}

}  // namespace
