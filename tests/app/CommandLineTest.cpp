// The program's arguments: modes, options of the headless drop, and the clear refusals of
// wrong ones; and the open-file limit, which a drop of hundreds of items needs raised (two
// descriptors per item).
#include "app/CommandLine.h"
#include "app/OpenFileLimit.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace velmar::test {
namespace {

struct CommandLineTest : ::testing::Test {
  QTemporaryDir dir;
  void SetUp() override {
    ASSERT_TRUE(dir.isValid());
    ASSERT_TRUE(QFile(dir.filePath("a file")).open(QIODevice::WriteOnly));
    ASSERT_TRUE(QDir().mkpath(dir.filePath("folder")));
  }
  // The parse in one line, with the test's folder written "D" (also in the arguments).
  QString Parse(QStringList arguments) {
    arguments.replaceInStrings(QRegularExpression("^D/"), dir.path() + "/");
    const CommandLine c = CommandLine::Parse(arguments, dir.path());
    const char* const modes[] = {"window", "drop", "help", "version"};
    QString text = modes[static_cast<int>(c.mode)];
    if (!c.Error.isEmpty()) return text + " error: " + c.Error;
    text += QString(" [%1] show=%2 linger=%3 shots=%4|%5").arg(c.Paths.join('|')).arg(c.Show).arg(c.LingerMs);
    return text.arg(c.Screenshot, c.PreferencesScreenshot).replace(dir.path(), "D");
  }
};

TEST_F(CommandLineTest, ModesPathsAndOptionsOfTheDropAndTheReasonsForWrongArguments) {
  const std::pair<QStringList, QString> rows[] = {
      {{}, "window [] show=0 linger=0 shots=|"},
      {{"--drop", "a file", "--help"}, "help"},
      {{"--version"}, "version"},
      // Paths relative and absolute, in order; "--" ends the options.
      {{"--drop", "a file", "D/folder/", "./folder/../a file"}, "drop [D/a file|D/folder|D/a file] show=0 linger=0 shots=|"},
      {{"--show", "--drop", "--linger", "1500", "--screenshot=main.png", "--preferences-screenshot", "/tmp/p.png", "--",
        "a file"}, "drop [D/a file] show=1 linger=1500 shots=D/main.png|/tmp/p.png"},
      {{"--drop"}, "window error: --drop wants at least one"},
      {{"--drop", "missing"}, "window error: no such file or folder: 'missing'"},
      {{"--drop", ""}, "window error: no such file or folder"},
      {{"a file"}, "window error: unexpected argument 'a file'"},
      {{"--frob"}, "window error: unknown option '--frob'"},
      {{"--show"}, "window error: --show, --linger and the screenshots go with --drop"},
      {{"--drop", "--linger", "soon", "a file"}, "window error: --linger wants"},
      {{"--drop", "--linger", "-5", "a file"}, "window error: --linger wants"},
      {{"--drop", "a file", "--screenshot"}, "window error: --screenshot wants a file name"},
  };
  for (const auto& [arguments, expected] : rows)
    EXPECT_TRUE(Parse(arguments).startsWith(expected))
        << arguments.join(' ').toStdString() << " -> " << Parse(arguments).toStdString();
  EXPECT_TRUE(CommandLine::Usage().contains("--drop"));
  // The early scan, before QApplication exists, stops at the end of options.
  EXPECT_TRUE(CommandLine::Mentions({"--drop", "x"}, "--drop"));
  EXPECT_FALSE(CommandLine::Mentions({"--", "--drop"}, "--drop"));
  EXPECT_TRUE(CommandLine::ChoosesPlatform({"-platform", "xcb"}));
  EXPECT_TRUE(CommandLine::ChoosesPlatform({"--platform=offscreen"}));
  EXPECT_FALSE(CommandLine::ChoosesPlatform({"--drop", "x"}));
}

TEST(OpenFileLimitTest, RaisesTheSoftLimitToTheHardLimitOnce) {
  rlimit original{}, now{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &original), 0);
  if (original.rlim_max != RLIM_INFINITY && original.rlim_max <= 256) GTEST_SKIP() << "hard limit too low to lower";
  const rlimit lowered{256, original.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  ASSERT_EQ(OpenFileLimit::Current(), 256);
  const qint64 raised = OpenFileLimit::Raise();
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
  EXPECT_EQ(now.rlim_cur, original.rlim_max == RLIM_INFINITY ? now.rlim_cur : original.rlim_max);
  EXPECT_GT(now.rlim_cur, rlim_t{256});
  EXPECT_EQ(raised, static_cast<qint64>(now.rlim_cur));
  EXPECT_EQ(OpenFileLimit::Raise(), raised);  // raising again changes nothing
  ::setrlimit(RLIMIT_NOFILE, &original);
}

}  // namespace
}  // namespace velmar::test
