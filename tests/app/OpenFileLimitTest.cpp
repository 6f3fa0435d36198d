// The open-file limit: a drop of hundreds of items needs two descriptors per item.
#include "app/OpenFileLimit.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace velmar::test {
namespace {

TEST(OpenFileLimitTest, RaisesTheSoftLimitToTheHardLimit) {
  rlimit original{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &original), 0);
  if (original.rlim_max != RLIM_INFINITY && original.rlim_max <= 256) GTEST_SKIP() << "hard limit too low to lower";
  rlimit lowered = original;
  lowered.rlim_cur = 256;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  ASSERT_EQ(OpenFileLimit::Current(), 256);

  const qint64 raised = OpenFileLimit::Raise();
  rlimit now{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
  if (original.rlim_max != RLIM_INFINITY) {
    EXPECT_EQ(now.rlim_cur, original.rlim_max);
  }
  EXPECT_GT(now.rlim_cur, rlim_t{256});
  EXPECT_EQ(raised, static_cast<qint64>(now.rlim_cur));
  // Raising again changes nothing.
  EXPECT_EQ(OpenFileLimit::Raise(), raised);
  ::setrlimit(RLIMIT_NOFILE, &original);
}

}  // namespace
}  // namespace velmar::test
