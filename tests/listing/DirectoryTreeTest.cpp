// The directory tree of a walk: the cursors of one directory, the session's path
// operations, and a received listing filed into the tree.
#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/Exceptions.h"
#include "session/FTPSessionClass.h"
#include "support/QtPrinters.h"

#include <QVariant>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using D = FTPDirectoryClass;

// One trace of the answers of a directory, checked at once; then the read past the end.
TEST(DirectoryTree, CursorsServeTheLastListedFirstAndEachOnce) {
  D d("/top", "");
  QStringList seen;
  const auto note = [&](const auto& answer) { seen << QVariant(answer).toString(); };
  note(d.CurrentSubDirectory), note(d.GetNextFileName()), note(d.GetFileCount());
  d.AddFile("a"), d.AddFile("B"), note(d.GetNextFileName()), note(d.GetFileCount());
  d.DeleteFile("b"), note(d.GetNextFileName());  // ignoring case
  d.DeleteFile("zz"), note(d.GetNextFileName());
  d.AddSubDirectory("/top/x"), note(d.CurrentSubDirectory), note(d.GetCurrentSubDirectoryName());
  d.AddSubDirectory("/top/y"), d.AddSubDirectory("/top/z"), note(d.CurrentSubDirectory), note(d.GetSubDirectoryCount());
  note(d.GetCurrentSubDirectoryName());
  for (int i = 0; i < 4; ++i) note(d.GetNextSubDirectoryName());
  note(d.GetCurrentSubDirectoryName());
  d.DeleteSubDirectory("/TOP/Y"), note(d.SubDirectories.join(","));
  EXPECT_EQ(seen, (QStringList{"-1", "", "-1", "B", "1", "a", "a", "0", "/top/x", "2", "2", "/top/z", "/top/z", "/top/y",
                               "/top/x", "", "", "/top/x,/top/z"}));
  // The cursor is not adjusted by a delete: an addition puts it on the newest entry, and
  // cursor 2 of two entries reads past the end.
  d.AddSubDirectory("/top/w"), d.DeleteSubDirectory("/top/x");
  EXPECT_THROW(d.GetCurrentSubDirectoryName(), OutOfBoundsException);
}

TEST(DirectoryTree, PathOperations) {
  FTPSessionClass s;
  EXPECT_EQ(s.GetCurrentDirectoryIndex("/a"), -1);
  s.DirList = {std::make_shared<D>("/a", ""), std::make_shared<D>("/a/b", "/a"), std::make_shared<D>("/a/b", "/a")};
  // Each call's answer, and what it must be.
  const std::pair<QString, QString> rows[] = {
      {QString::number(s.GetCurrentDirectoryIndex("/a/b")), "1"}, {QString::number(s.GetCurrentDirectoryIndex("/A")), "0"},
      {QString::number(s.GetCurrentDirectoryIndex("/a/")), "-1"}, {s.GetDirFromPath("/home/me/file.txt"), "/home/me/"},
      {s.GetDirFromPath("/home/me/"), "/home/me/"},               {s.GetDirFromPath("plain"), ""},
      {s.GetFileFromPath("/pub/dir/file.txt"), "file.txt"},       {s.GetFileFromPath("/pub/dir/"), ""},
      {s.GetFileFromPath("file.txt"), "file.txt"},                {s.UpOneLocalDirectory("/a/b/c/"), "/a/b/"},
      {s.UpOneLocalDirectory("/a/b/c"), "/a/b/"},                 {s.UpOneLocalDirectory("a/"), ""},
      {s.UpOneLocalDirectory("/"), ""},
  };
  for (qsizetype i = 0; i < std::ssize(rows); ++i) EXPECT_EQ(rows[i].first, rows[i].second) << "row " << i;
  s.FileDelimiter = ":";  // the local delimiter only; server paths keep "/"
  EXPECT_EQ(s.UpOneLocalDirectory("Disk:a:b:"), "Disk:a:");
  EXPECT_EQ(s.GetFileFromPath("x:/y"), "y");
}

// A walk standing in `directory`, the one entry of its tree, and the socket that files a listing.
struct Walk {
  std::shared_ptr<FTPSessionClass> session = std::make_shared<FTPSessionClass>();
  FTPDataSocket data{session.get()};
  explicit Walk(const QString& directory) {
    session->DirList = {std::make_shared<D>(directory, "")};
    session->CurrentDirectoryIndex = 0;
    session->CurrentWorkingDirectory = directory;
  }
};

TEST(DirectoryTree, AListingIsFiledUnderTheCurrentDirectory) {
  auto [session, data] = Walk("/");
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
  auto [session, data] = Walk("/h");
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
