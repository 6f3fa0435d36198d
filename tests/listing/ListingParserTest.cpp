// The listing-line parser: one table of lines and the records they give, the odd results
// included, and the lines that read past their last token.
#include "listing/FTPParsedDirListLineClass.h"
#include "platform/Exceptions.h"
#include "session/FTPSessionClass.h"
#include "support/QtPrinters.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

// A record as one line: name | kind (d, f, l for both, - for none) | size | date | time | permissions.
QString Describe(const FTPParsedDirListLineClass& r) {
  const QString kind = r.IsDir && r.IsFile ? "l" : r.IsDir ? "d" : r.IsFile ? "f" : "-";
  return QStringList{r.Name, kind, QString::number(r.Size), r.ModDate, r.ModTime, r.Permissions}.join(" | ");
}

// A line and the record it gives.
const std::pair<const char*, const char*> kCases[] = {
    // Unix lines: the kind from the first character, the size before the month.
    {"-rw-r--r--   1 owner  staff      1234 Jan 15 10:30 report final.txt",
     "report final.txt | f | 1234 | Jan 15 | 10:30 | rw-r--r--"},
    {"drwxr-xr-x   2 owner  staff      4096 Dec  3  2006 photos", "photos | d | 4096 | Dec 3 | 2006 | rwxr-xr-x"},
    {"lrwxrwxrwx   1 owner  staff        11 Mar  9 08:05 current -> releases/7",
     "current -> releases/7 | l | 11 | Mar 9 | 08:05 | rwxrwxrwx"},
    {"crw-rw-rw-   1 root   sys          13 Apr  2 11:11 tty0", "tty0 | - | 13 | Apr 2 | 11:11 | rw-rw-rw-"},
    {"DRWXR-XR-X 2 o g 1 JAN 1 10:00 Up", "Up | d | 1 | JAN 1 | 10:00 | RWXR-XR-X"},
    {"L--------- 2 o g 1 jan 1 10:00 a -> b", "a -> b | l | 1 | jan 1 | 10:00 | ---------"},
    // The first month wins, even an owner's name; token 0 counts as none.
    {"-rw-r--r--   1 may    staff      1234 Jan 15 10:30 notes.txt",
     "Jan 15 10:30 notes.txt | f | 0 | may staff | 1234 | rw-r--r--"},
    {"Jan x y z w", "w | f | 0 | Jan | y | "},
    // A rights mask in token 1 is read as a Unix line: the squeeze leaves no empty token u-1.
    {"d [RWCEAFMS] owner    512 Jan 15 10:30 shared", "shared | d | 512 | Jan 15 | 10:30 | "},
    // Names keep one blank per run, and a trailing blank.
    {"-rw-r--r-- 1 o g 5 Jan 15 10:30 two  blanks ", "two blanks  | f | 5 | Jan 15 | 10:30 | rw-r--r--"},
    {"-rw-r--r-- 1 o g 5 Jan 15 10:30", " | f | 5 | Jan 15 | 10:30 | rw-r--r--"},
    {"-rw-r--r-- 1 o g 5 Jan 15 10:30 ", " | f | 5 | Jan 15 | 10:30 | rw-r--r--"},
    {" -rw-r--r-- 1 o g 5 Jan 15 10:30 x", "x | - | 5 | Jan 15 | 10:30 | "},
    // Four tokens or fewer: all initial.
    {"04-27-07  03:15PM                 1024 report.txt", " | - | 0 |  |  | "},
    {"total 48", " | - | 0 |  |  | "},
    {"", " | - | 0 |  |  | "},
    // Windows form: token 2 is taken for the time, the word behind it for the size.
    {"04-27-07  03:15PM                 1024 annual report.txt", "report.txt | f | 0 | 04-27-07 | 1024 | "},
    {"04-27-07  03:15PM       <DIR>          Program Files", "Files | f | 0 | 04-27-07 | <DIR> | "},
    {"04-27-07  03:15PM  x  <DIR>  Old Files", "Old Files | d | 0 | 04-27-07 | x | "},
    {"04-27-07  03:15PM  x  <dir>  Old", "Old | d | 0 | 04-27-07 | x | "},
    {"some text without a month and with many words", "month and with many words | f | 0 | some | without | "},
    {"a b c 77 ", "a b c 77  | f | 77 | a | c | "},
    // A month at index 25 counts; at 26 the line is a Windows line.
    {"-r 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 9 Feb 1 10:00 n", "n | f | 9 | Feb 1 | 10:00 | r"},
    {"-r 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 9 Feb 1 10:00 n",
     "4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 9 Feb 1 10:00 n | f | 3 | -r | 2 | "},
};

TEST(ListingParser, LinesGiveTheirRecords) {
  FTPSessionClass session;
  for (const auto& [line, record] : kCases)
    EXPECT_EQ(Describe(*session.ParseDirListLine(QString::fromUtf8(line))), QString::fromUtf8(record)) << line;
}

// A Unix line whose month has fewer than two tokens behind it reads past its end.
TEST(ListingParser, ReadingPastTheLastTokenRaises) {
  FTPSessionClass session;
  for (const char* line : {"-rw-r--r-- 1 o g 12 Jan 15", "-rw-r--r-- 1 o g s 12 Jan", "-rw-r--r-- 1 o g Jan 15 "})
    EXPECT_THROW(session.ParseDirListLine(QString::fromUtf8(line)), OutOfBoundsException) << line;
}

// Lines captured from vsftpd and pyftpdlib by capture_listings.sh, from a tree it builds:
// one record per entry, in listing order, with the dates and times of the capture masked. A
// year stands where the time would be for a file of an earlier year.
TEST(ListingParser, LinesOfRealServers) {
  const QStringList expected = {
      "a folder | d | 4096 | Mon d | hh:mm | rwxr-xr-x",      "empty | f | 0 | Mon d | hh:mm | rw-r--r--",
      "link -> a folder | l | 8 | Mon d | hh:mm | rwxrwxrwx", "old.txt | f | 3 | Mon d | 2006 | rw-r--r--",
      "report final.txt | f | 1234 | Mon d | hh:mm | rw-r--r--",
      "two blanks.txt | f | 1 | Mon d | hh:mm | rw-r--r--",  // a run of blanks in a name comes out as one
  };
  FTPSessionClass session;
  for (const char* server : {"vsftpd", "pyftpdlib"}) {
    QFile file(QStringLiteral(VELMAR_TEST_SUPPORT_DIR "/../listing/data/%1.txt").arg(server));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << server;
    QStringList records;
    for (const QString& line : QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts))
      records << Describe(*session.ParseDirListLine(line))
                     .replace(QRegularExpression("\\| [A-Z][a-z][a-z] \\d+ \\|"), "| Mon d |")
                     .replace(QRegularExpression("\\| \\d\\d:\\d\\d \\|"), "| hh:mm |");
    EXPECT_EQ(records, expected) << server;
  }
}

}  // namespace
}  // namespace velmar::test
