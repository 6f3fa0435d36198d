// The program's arguments: modes, options of the headless drop, and the clear refusals of
// wrong ones; and the open-file limit, which a drop of hundreds of items needs raised (two
// descriptors per item).
#include "app/CommandLine.h"
#include "app/OpenFileLimit.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace velmar::test {
namespace {

struct CommandLineTest : ::testing::Test {
  QTemporaryDir dir;
  void SetUp() override {
    ASSERT_TRUE(dir.isValid());
    QFile file(dir.filePath("a file"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(QDir().mkpath(dir.filePath("folder")));
  }
  CommandLine Parse(const QStringList& arguments) { return CommandLine::Parse(arguments, dir.path()); }
};

TEST_F(CommandLineTest, ModesAndTheDropsPathsRelativeAndAbsoluteInOrder) {
  EXPECT_EQ(Parse({}).mode, CommandLine::Mode::Window);
  EXPECT_TRUE(Parse({}).Error.isEmpty());
  EXPECT_EQ(Parse({"--drop", "a file", "--help"}).mode, CommandLine::Mode::Help);
  EXPECT_EQ(Parse({"--version"}).mode, CommandLine::Mode::Version);
  EXPECT_TRUE(CommandLine::Usage().contains("--drop"));
  const CommandLine line = Parse({"--drop", "a file", dir.filePath("folder") + "/", "./folder/../a file"});
  ASSERT_TRUE(line.Error.isEmpty()) << line.Error.toStdString();
  EXPECT_EQ(line.mode, CommandLine::Mode::Drop);
  EXPECT_EQ(line.Paths, (QStringList{dir.filePath("a file"), dir.filePath("folder"), dir.filePath("a file")}));
  EXPECT_FALSE(line.Show);
  EXPECT_EQ(line.LingerMs, 0);
}

TEST_F(CommandLineTest, DropOptionsAndTheEndOfOptions) {
  const CommandLine line = Parse({"--show", "--drop", "--linger", "1500", "--screenshot=main.png",
                                  "--preferences-screenshot", "/tmp/p.png", "--", "a file"});
  ASSERT_TRUE(line.Error.isEmpty()) << line.Error.toStdString();
  EXPECT_TRUE(line.Show);
  EXPECT_EQ(line.LingerMs, 1500);
  EXPECT_EQ(line.Screenshot, dir.filePath("main.png"));
  EXPECT_EQ(line.PreferencesScreenshot, "/tmp/p.png");
  EXPECT_EQ(line.Paths, QStringList{dir.filePath("a file")});
}

TEST_F(CommandLineTest, WrongArgumentsAreRefusedWithAReason) {
  const struct {
    QStringList arguments;
    const char* reason;
  } cases[] = {
      {{"--drop"}, "at least one"},
      {{"--drop", "missing"}, "no such file or folder: 'missing'"},
      {{"--drop", ""}, "no such file or folder"},
      {{"a file"}, "unexpected argument 'a file'"},
      {{"--frob"}, "unknown option '--frob'"},
      {{"--show"}, "go with --drop"},
      {{"--drop", "--linger", "soon", "a file"}, "--linger wants"},
      {{"--drop", "--linger", "-5", "a file"}, "--linger wants"},
      {{"--drop", "a file", "--screenshot"}, "--screenshot wants a file name"},
  };
  for (const auto& c : cases) {
    const CommandLine line = Parse(c.arguments);
    EXPECT_TRUE(line.Error.contains(QLatin1String(c.reason)))
        << c.arguments.join(' ').toStdString() << " -> " << line.Error.toStdString();
    EXPECT_NE(line.mode, CommandLine::Mode::Drop);
  }
}

TEST_F(CommandLineTest, EarlyScanStopsAtTheEndOfOptions) {
  EXPECT_TRUE(CommandLine::Mentions({"--drop", "x"}, "--drop"));
  EXPECT_FALSE(CommandLine::Mentions({"--", "--drop"}, "--drop"));
  EXPECT_TRUE(CommandLine::ChoosesPlatform({"-platform", "xcb"}));
  EXPECT_TRUE(CommandLine::ChoosesPlatform({"--platform=offscreen"}));
  EXPECT_FALSE(CommandLine::ChoosesPlatform({"--drop", "x"}));
}

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
