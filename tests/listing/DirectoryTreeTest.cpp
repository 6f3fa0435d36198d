// The directory tree of a walk: the cursors of one directory, the session's path
// operations, and a received listing filed into the tree.
#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/Exceptions.h"
#include "session/FTPSessionClass.h"
#include "support/QtPrinters.h"

#include <functional>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using D = FTPDirectoryClass;

// One step on a directory and what it answers (or the state it leaves, as text).
struct CursorStep {
  std::function<QString(D&)> step;
  const char* expected;
};

QString Added(D& d, void (D::*add)(const QString&), const QString& name) {
  (d.*add)(name);
  return QString::number(d.CurrentSubDirectory);
}

TEST(DirectoryTree, CursorsServeTheLastListedFirstAndEachOnce) {
  D d("/top", "");
  const CursorStep steps[] = {
      {[](D& d) { return QString::number(d.CurrentSubDirectory); }, "-1"},
      {[](D& d) { return d.GetNextFileName(); }, ""},
      {[](D& d) { return QString::number(d.GetFileCount()); }, "-1"},
      {[](D& d) { return Added(d, &D::AddFile, "a"), Added(d, &D::AddFile, "B"), d.GetNextFileName(); }, "B"},
      {[](D& d) { return QString::number(d.GetFileCount()); }, "1"},
      {[](D& d) { return d.DeleteFile("b"), d.GetNextFileName(); }, "a"},  // ignoring case
      {[](D& d) { return d.DeleteFile("zz"), d.GetNextFileName(); }, "a"},
      {[](D& d) { return Added(d, &D::AddSubDirectory, "/top/x"); }, "0"},
      {[](D& d) { return Added(d, &D::AddSubDirectory, "/top/y"), Added(d, &D::AddSubDirectory, "/top/z"); }, "2"},
      {[](D& d) { return QString::number(d.GetSubDirectoryCount()); }, "2"},
      {[](D& d) { return d.GetCurrentSubDirectoryName(); }, "/top/z"},
      {[](D& d) { return d.GetNextSubDirectoryName(); }, "/top/z"},
      {[](D& d) { return d.GetNextSubDirectoryName(); }, "/top/y"},
      {[](D& d) { return d.GetNextSubDirectoryName(); }, "/top/x"},
      {[](D& d) { return d.GetNextSubDirectoryName(); }, ""},
      {[](D& d) { return d.GetCurrentSubDirectoryName(); }, ""},
      {[](D& d) { return d.DeleteSubDirectory("/TOP/Y"), d.SubDirectories.join(","); }, "/top/x,/top/z"},
      // The cursor is not adjusted by a delete: an addition puts it on the newest entry.
      {[](D& d) { return Added(d, &D::AddSubDirectory, "/top/w"), d.DeleteSubDirectory("/top/x"), d.GetCurrentSubDirectoryName(); }, ""},
  };
  for (qsizetype i = 0; i < std::ssize(steps); ++i) {
    if (i == std::ssize(steps) - 1) {
      // Cursor 2 of two entries: a read past the end.
      EXPECT_THROW(steps[i].step(d), OutOfBoundsException);
      continue;
    }
    EXPECT_EQ(steps[i].step(d), steps[i].expected) << "step " << i;
  }
}

TEST(DirectoryTree, PathOperations) {
  FTPSessionClass s;
  EXPECT_EQ(s.GetCurrentDirectoryIndex("/a"), -1);
  s.DirList = {std::make_shared<D>("/a", ""), std::make_shared<D>("/a/b", "/a"), std::make_shared<D>("/a/b", "/a")};
  const struct {
    std::function<QString()> call;
    const char* expected;
  } rows[] = {
      {[&] { return QString::number(s.GetCurrentDirectoryIndex("/a/b")); }, "1"},
      {[&] { return QString::number(s.GetCurrentDirectoryIndex("/A")); }, "0"},
      {[&] { return QString::number(s.GetCurrentDirectoryIndex("/a/")); }, "-1"},
      {[&] { return s.GetDirFromPath("/home/me/file.txt"); }, "/home/me/"},
      {[&] { return s.GetDirFromPath("/home/me/"); }, "/home/me/"},
      {[&] { return s.GetDirFromPath("plain"); }, ""},
      {[&] { return s.GetFileFromPath("/pub/dir/file.txt"); }, "file.txt"},
      {[&] { return s.GetFileFromPath("/pub/dir/"); }, ""},
      {[&] { return s.GetFileFromPath("file.txt"); }, "file.txt"},
      {[&] { return s.UpOneLocalDirectory("/a/b/c/"); }, "/a/b/"},
      {[&] { return s.UpOneLocalDirectory("/a/b/c"); }, "/a/b/"},
      {[&] { return s.UpOneLocalDirectory("a/"); }, ""},
      {[&] { return s.UpOneLocalDirectory("/"); }, ""},
  };
  for (const auto& row : rows) EXPECT_EQ(row.call(), row.expected);
  s.FileDelimiter = ":";  // the local delimiter only; server paths keep "/"
  EXPECT_EQ(s.UpOneLocalDirectory("Disk:a:b:"), "Disk:a:");
  EXPECT_EQ(s.GetFileFromPath("x:/y"), "y");
}

TEST(DirectoryTree, AListingIsFiledUnderTheCurrentDirectory) {
  auto session = std::make_shared<FTPSessionClass>();
  FTPDataSocket data(session.get());
  session->DirList = {std::make_shared<D>("/", "")};
  session->CurrentDirectoryIndex = 0;
  session->CurrentWorkingDirectory = "/";
  data.ParseDirectoryList(
      "total 12\r\n"
      "drwxr-xr-x 2 o g 4096 Jan 15 10:30 .\r\n"
      "drwxr-xr-x 2 o g 4096 Jan 15 10:30 ..\n"
      "-rw-r--r-- 1 o g 10 Jan 15 10:30 first file.txt\r"
      "drwxr-xr-x 2 o g 4096 Jan 15 10:30 sub\r\n"
      "lrwxrwxrwx 1 o g 3 Jan 15 10:30 link -> sub\r\n"
      "crw-rw-rw- 1 o g 13 Apr 2 11:11 tty0\r\n"
      "-rw-r--r-- 1 o g 20 Jan 15 10:30 second\r\n");
  ASSERT_EQ(session->DirList.size(), 3);
  const D& root = *session->DirList[0];
  EXPECT_EQ(root.Files, (QStringList{"first file.txt", "second"}));
  // Paths are joined as they stand: a working directory of "/" gives two slashes.
  EXPECT_EQ(root.SubDirectories, (QStringList{"//sub", "//link -> sub"}));
  EXPECT_EQ(root.CurrentSubDirectory, 1);
  EXPECT_EQ(session->DirList[1]->Name, "//sub");
  EXPECT_EQ(session->DirList[2]->ParentDirectory, "/");

  // With no current directory the first entry to file raises; rejected lines do not.
  session->CurrentDirectoryIndex = -1;
  data.ParseDirectoryList("total 0\r\n\r\n");
  EXPECT_THROW(data.ParseDirectoryList("-rw-r--r-- 1 o g 20 Jan 15 10:30 x\r\n"), OutOfBoundsException);
}

// What a hostile server may send: a million lines, a line of a megabyte with half a million
// tokens, binary bytes with NUL, a line of thousands of month names. Each line is
// filed or rejected; the only way out is the read past the last token.
TEST(DirectoryTree, HostileListingsAreFiledOrRejected) {
  auto session = std::make_shared<FTPSessionClass>();
  FTPDataSocket data(session.get());
  session->DirList = {std::make_shared<D>("/h", "")};
  session->CurrentDirectoryIndex = 0;
  session->CurrentWorkingDirectory = "/h";
  QString binary;
  for (int i = 0; i < 4096; ++i)
    if (i % 256 != 10 && i % 256 != 13) binary += QChar(i % 256);  // all bytes but the line ends
  QString listing;
  listing.reserve(12'000'000);
  for (int i = 0; i < 1'000'000; ++i)
    listing += i % 1000 ? QStringLiteral("junk\r\n") : QStringLiteral("-rw-r--r-- 1 o g 1 Jan 1 10:00 f%1\r\n").arg(i);
  listing += QStringLiteral("a b ").repeated(1 << 18) + "\r\n" + binary + "\r\n" +
             QStringLiteral("Jan ").repeated(5000) + "x\r\n";
  data.ParseDirectoryList(listing);
  const D& root = *session->DirList[0];
  ASSERT_EQ(root.Files.size(), 1000 + 3);
  EXPECT_EQ(root.Files.first(), "f0");
  EXPECT_EQ(root.Files[1000].size(), (1 << 20) - 8);  // a Windows line: the name from the fifth token on
  EXPECT_EQ(session->DirList.size(), 1);
  EXPECT_THROW(data.ParseDirectoryList("-rw-r--r-- 1 o g 12 Jan 15\r\n"), OutOfBoundsException);
}

}  // namespace
}  // namespace velmar::test
