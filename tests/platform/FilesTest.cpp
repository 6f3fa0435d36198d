// Files and folders in temporary folders: FolderItem, BinaryStream and the text streams.
#include "platform/BinaryStream.h"
#include "platform/FolderItem.h"
#include "platform/TextInputStream.h"
#include "platform/TextOutputStream.h"
#include "support/TestFiles.h"

#include <QScopeGuard>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace velmar::test {
namespace {

class FilesTest : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(temp_.isValid()); }

  QString Path(const QString& relative) const { return temp_.path() + u'/' + relative; }
  std::shared_ptr<FolderItem> Item(const QString& relative) const { return GetFolderItem(Path(relative)); }
  void Write(const QString& relative, const QByteArray& content) const { WriteFile(Path(relative), content); }
  QByteArray Read(const QString& relative) const { return ReadFile(Path(relative)); }
  int Mode(const QString& relative) const {
    struct stat info {};
    return ::stat(QFile::encodeName(Path(relative)).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
  }

  QTemporaryDir temp_;
};

// An item in one line: "folder 'sub' /tmp/x/sub/ 0" (kind, name, absolute path, length).
QString Describe(const FolderItem& item) {
  const char* kind = !item.Exists() ? "missing" : item.Directory() ? "folder" : "file";
  return QString("%1 '%2' %3 %4").arg(kind, item.Name(), item.AbsolutePath()).arg(item.Length());
}

// A binary stream in one line: open or closed, position/length, and " eof" at its end.
QString Describe(const BinaryStream& s) {
  const QString state = QString("%1/%2").arg(s.Position()).arg(s.Length());
  return (s.IsOpen() ? "open " : "closed ") + state + (s.EOF() ? " eof" : "");
}

// Every line until EOF, at most 100.
QStringList Lines(TextInputStream& in) {
  QStringList lines;
  for (int i = 0; i < 100 && !in.EOF(); ++i) lines << in.ReadLine();
  return lines;
}

const QString kUmlauts = QString::fromUtf8("Gr\xC3\xBC\xC3\x9F" "e");  // "Grüße"

TEST_F(FilesTest, PathsNamesAndLengthsAndWhatIsNoPathOrName) {
  Write("sub/file.txt", "12345");
  const QString sub = "folder 'sub' " + Path("sub/") + " 0", root = "folder '' / 0", tmp = "folder 'tmp' /tmp/ 0";
  const std::pair<std::shared_ptr<FolderItem>, QString> rows[] = {
      // A trailing "/" or a "." in the given path make no difference.
      {Item("sub"), sub}, {Item("./sub/."), sub}, {Item("sub/"), sub},
      {Item("sub")->Child("file.txt"), "file 'file.txt' " + Path("sub/file.txt") + " 5"},
      // A child of a missing name is an item that does not exist yet.
      {Item("sub")->Child("new.txt"), "missing 'new.txt' " + Path("sub/new.txt") + " 0"},
      // The root is a folder, what lies above it is the root, and its children get no double "/".
      {GetFolderItem("/"), root}, {GetFolderItem("/.."), root}, {GetFolderItem("/../../tmp"), tmp},
      {GetFolderItem("/")->Child("tmp"), tmp},
      // No absolute path, or no folder: no item.
      {GetFolderItem(""), "null"}, {GetFolderItem("relative/file.txt"), "null"}, {GetFolderItem("./file.txt"), "null"},
      {Item("sub/file.txt")->Child("x"), "null"}, {Item("missing")->Child("x"), "null"},
  };
  for (const auto& [item, expected] : rows) EXPECT_EQ(item ? Describe(*item) : "null", expected);
  for (const char* name : {"", "a/b", "/", "..", "."}) EXPECT_EQ(Item("")->Child(name), nullptr) << name;
}

TEST_F(FilesTest, MissingItemsAndFoldersDoNotOpenAsFilesAndAFolderIsMadeInAnExistingParent) {
  auto missing = Item("new.txt"), folder = Item("made");
  EXPECT_TRUE(folder->CreateAsFolder() && folder->CreateAsFolder());  // the second finds it there
  EXPECT_TRUE(folder->Directory());
  // Opening a missing item for writing must not create it.
  for (const auto& item : {missing, folder}) {
    SCOPED_TRACE(item->Name().toStdString());
    EXPECT_FALSE(item->OpenAsBinaryFile(false) || item->OpenAsBinaryFile(true) || item->OpenAsTextFile());
    EXPECT_FALSE(item->LastError().isEmpty());
  }
  EXPECT_FALSE(folder->CreateBinaryFile(QString()) || folder->CreateTextFile());
  EXPECT_FALSE(missing->Delete() || missing->Count() != 0 || missing->Item(1));
  EXPECT_FALSE(QFile::exists(Path("new.txt")));
  Write("file", "data");
  EXPECT_FALSE(Item("no/such/parent")->CreateAsFolder() || Item("file")->CreateAsFolder());
  EXPECT_EQ(Read("file"), "data");
}

TEST_F(FilesTest, ItemsComeInOrderOfNameAndAWalkDeletesFilesAndEmptyFoldersOnly) {
  for (const char* name : {"b", "a", "C", ".hidden", "full/keep.txt"}) Write(name, "keep");
  ASSERT_TRUE(QDir().mkpath(Path("empty")));
  auto root = Item("");
  ASSERT_EQ(root->Count(), 6);
  QStringList names;
  for (int i = 1; i <= 6; ++i) names << (root->Item(i) ? root->Item(i)->Name() : "null");
  EXPECT_EQ(names, (QStringList{".hidden", "C", "a", "b", "empty", "full"}));
  EXPECT_EQ(root->Item(6)->Count(), 1);
  for (int outside : {0, 7, -1}) EXPECT_EQ(root->Item(outside), nullptr) << outside;
  // Forward: the listing of Count() stays valid while entries go.
  for (int i = 1; i <= 6; ++i) {
    auto item = root->Item(i);
    SCOPED_TRACE(item->Name().toStdString());
    EXPECT_EQ(item->Delete(), item->Name() != "full");
    EXPECT_EQ(item->LastError().isEmpty(), item->Name() != "full");
  }
  EXPECT_FALSE(QFileInfo::exists(Path("empty")));
  EXPECT_EQ(Read("full/keep.txt"), "keep");
  Write("e", "");  // Count reads the folder anew
  EXPECT_EQ(root->Count(), 2);
  EXPECT_EQ(root->Item(1)->Name(), "e");
}

TEST_F(FilesTest, BinaryStreamWritesReadsSeeksAndCloses) {
  auto item = Item("data.bin");
  auto out = item->CreateBinaryFile("application/octet-stream");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(Describe(*out), "open 0/0 eof");
  EXPECT_TRUE(out->Write("0123456789") && out->Write(QByteArray()));
  EXPECT_EQ(Describe(*out), "open 10/10 eof");
  EXPECT_EQ(Read("data.bin"), "0123456789");  // in the file at once, before Close
  EXPECT_TRUE(out->SetPosition(2) && out->Read(0).isEmpty());
  EXPECT_EQ(out->Read(3), "234");
  EXPECT_EQ(Describe(*out), "open 5/10");
  EXPECT_FALSE(out->SetPosition(-1));
  // Closed, it does nothing, and a second close is harmless.
  out->Close();
  EXPECT_EQ(Describe(*out), "closed 0/0 eof");
  EXPECT_FALSE(out->Write("lost") || out->SetPosition(0) || !out->Read(10).isEmpty());
  EXPECT_FALSE(out->LastError().isEmpty());
  out->Close();
  EXPECT_EQ(item->Length(), 10);
  // Read-only: a write fails and says why.
  auto in = item->OpenAsBinaryFile(false);
  ASSERT_NE(in, nullptr);
  EXPECT_FALSE(in->Write("zz"));
  EXPECT_FALSE(in->LastError().isEmpty());
  in.reset();
  auto rw = item->OpenAsBinaryFile(true);  // keeps the content
  ASSERT_TRUE(rw && rw->SetPosition(8));
  EXPECT_TRUE(rw->Write("ABCD"));  // overwrites two bytes and appends two
  EXPECT_EQ(Describe(*rw), "open 12/12 eof");
  rw.reset();  // released: closed
  EXPECT_EQ(Read("data.bin"), "01234567ABCD");
  auto created = item->CreateBinaryFile(QString());  // truncates
  EXPECT_EQ(Describe(*created), "open 0/0 eof");
  // Deleted while this process writes it, the file is emptied, not unlinked; once closed, it goes.
  ASSERT_TRUE(created->Write("abc") && item->Delete());
  EXPECT_EQ(Read("data.bin"), QByteArray());
  created.reset();
  EXPECT_TRUE(item->Delete());
  EXPECT_FALSE(item->Exists());
}

TEST_F(FilesTest, BlocksThroughTheReadAheadAddUpToTheFileAfterSeeksAndWhenItShrinks) {
  const QByteArray content = RandomBytes(3 * 65536 + 1234, 11);
  Write("f", content);
  // The last block asked for is cut to what is left.
  for (qint64 block : {1, 2048, 4095, 65536, 65537, 1 << 20}) {
    auto stream = Item("f")->OpenAsBinaryFile(false);
    ASSERT_TRUE(stream);
    QByteArray read;
    for (int rounds = 0; !stream->EOF() && rounds < 1000000; ++rounds) {
      EXPECT_EQ(stream->Position(), read.size());
      const QByteArray piece = stream->Read(block);
      ASSERT_FALSE(piece.isEmpty());
      read += piece;
    }
    EXPECT_TRUE(read == content) << "block " << block;
  }
  // Seeks drop what was read ahead.
  auto stream = Item("f")->OpenAsBinaryFile(false);
  ASSERT_TRUE(stream->Read(100) == content.left(100) && stream->SetPosition(150000));
  EXPECT_EQ(stream->Position(), 150000);
  EXPECT_TRUE(stream->Read(2048) == content.mid(150000, 2048));
  ASSERT_TRUE(stream->SetPosition(10));
  EXPECT_TRUE(stream->Read(5) == content.mid(10, 5));
  // The stream learns a new length at its next short read and stops there.
  ASSERT_TRUE(QFile::resize(Path("f"), 100000));
  qint64 end = stream->Position();
  for (qint64 piece = 1; piece > 0 && end < 200000 && !stream->EOF(); end += piece) piece = stream->Read(4096).size();
  EXPECT_EQ(end, 100000);
  EXPECT_TRUE(stream->EOF() && stream->Read(4096).isEmpty());
}

TEST_F(FilesTest, ReadsAndWritesAtPositionsPastTwoGiB) {
  constexpr qint64 kSize = 3LL << 30, kPast2G = (1LL << 31) + 5;
  Write("big.bin", "");
  if (!QFile::resize(Path("big.bin"), kSize)) GTEST_SKIP() << "cannot make a 3 GiB sparse file here";
  auto item = Item("big.bin");
  auto rw = item->OpenAsBinaryFile(true);
  ASSERT_NE(rw, nullptr);
  ASSERT_TRUE(rw->SetPosition(kPast2G) && rw->Write("MIDDLE"));
  ASSERT_TRUE(rw->SetPosition(kSize - 4) && rw->Write("TAIL"));
  EXPECT_EQ(Describe(*rw), QString("open %1/%1 eof").arg(kSize));
  rw.reset();
  auto in = item->OpenAsBinaryFile(false);
  ASSERT_TRUE(in && in->SetPosition(kPast2G - 2));
  EXPECT_EQ(in->Read(8), QByteArray("\0\0MIDDLE", 8));
  EXPECT_EQ(Describe(*in), QString("open %1/%2").arg(kPast2G + 6).arg(kSize));
  ASSERT_TRUE(in->SetPosition(kSize - 6));
  EXPECT_EQ(in->Read(65536), QByteArray("\0\0TAIL", 6));
  EXPECT_EQ(Describe(*in), QString("open %1/%1 eof").arg(kSize));
  EXPECT_TRUE(in->Read(65536).isEmpty());
  EXPECT_EQ(item->Length(), kSize);
}

TEST_F(FilesTest, AFailedWriteIsReported) {
  // /dev/full takes no byte: every write fails as on a full disk.
  auto full = GetFolderItem("/dev/full");
  if (!full->Exists()) GTEST_SKIP() << "no /dev/full on this machine";
  auto stream = full->OpenAsBinaryFile(true);
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(stream->LastError().isEmpty());
  EXPECT_FALSE(stream->Write(QByteArray(4096, 'x')));
  EXPECT_FALSE(stream->LastError().isEmpty());
  // A text file's small writes may wait in its buffer: the failure shows at the latest on Close.
  auto text = full->CreateTextFile();
  ASSERT_NE(text, nullptr);
  const bool wrote = text->WriteLine("lost");
  EXPECT_FALSE(wrote && text->Close());
  EXPECT_FALSE(text->LastError().isEmpty());
}

TEST_F(FilesTest, CreateTextFileAppliesTheMode) {
  for (int mode : {0600, 0640, 0604}) {
    ASSERT_NE(Item("prefs")->CreateTextFile(mode), nullptr);
    EXPECT_EQ(Mode("prefs"), mode);
  }
  // An existing file readable by all is narrowed, and emptied, before anything is written to it.
  Write("old", "old secret");
  ASSERT_EQ(::chmod(QFile::encodeName(Path("old")).constData(), 0644), 0);
  ASSERT_NE(Item("old")->CreateTextFile(0600), nullptr);
  EXPECT_EQ(Mode("old"), 0600);
  EXPECT_EQ(Read("old"), QByteArray());
  // The default leaves the mode to the umask.
  const mode_t mask = ::umask(022);
  ::umask(mask);
  ASSERT_NE(Item("plain")->CreateTextFile(), nullptr);
  EXPECT_EQ(Mode("plain"), 0666 & ~static_cast<int>(mask));
}

TEST_F(FilesTest, PreferencesFolderUsesXdgConfigHomeOrDotConfigInHome) {
  const QByteArray home = qgetenv("HOME"), config = qgetenv("XDG_CONFIG_HOME");
  const bool hadConfig = qEnvironmentVariableIsSet("XDG_CONFIG_HOME");
  const auto restore = qScopeGuard([&] {  // puts both variables back however the test ends
    qputenv("HOME", home);
    hadConfig ? qputenv("XDG_CONFIG_HOME", config) : qunsetenv("XDG_CONFIG_HOME");
  });
  // A relative value is ignored; a missing folder is made, for the owner only; an existing one is used.
  qputenv("HOME", QFile::encodeName(temp_.path()));
  ASSERT_TRUE(QDir().mkpath(Path("cfg")));
  const std::pair<QString, QString> rows[] = {
      {Path("a/config"), "a/config"}, {QString(), ".config"}, {"relative/config", ".config"}, {Path("cfg"), "cfg"}};
  for (const auto& [xdg, folder] : rows) {
    SCOPED_TRACE(xdg.toStdString());
    xdg.isNull() ? qunsetenv("XDG_CONFIG_HOME") : qputenv("XDG_CONFIG_HOME", QFile::encodeName(xdg));
    EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path(folder + "/"));
    EXPECT_EQ(folder == "cfg" ? 0700 : Mode(folder), 0700);
  }
}

TEST_F(FilesTest, TextLinesWrittenAndReadInBothEncodingsEndAtCrLfOrLf) {
  auto out = Item("t.txt")->CreateTextFile();
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(out->WriteLine("first") && out->Write("sec") && out->WriteLine("ond"));
  EXPECT_TRUE(out->WriteLine(QString()) && out->WriteLine(kUmlauts) && out->Close());
  EXPECT_FALSE(out->WriteLine("lost"));
  EXPECT_FALSE(out->LastError().isEmpty());
  EXPECT_TRUE(out->Close());  // a second close is harmless
  EXPECT_EQ(Read("t.txt"), QByteArray("first\nsecond\n\nGr\xC3\xBC\xC3\x9F" "e\n"));
  // Read by default as UTF-8 (the rows of the next test); closed, a stream reads nothing.
  auto in = Item("t.txt")->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Encoding, TextEncoding::UTF8());
  in->Close();
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadLine() + in->ReadAll(), QString());
  // Latin 1 both ways; read as UTF-8, the same bytes are not valid.
  out = Item("t.txt")->CreateTextFile();
  out->Encoding = TextEncoding::ISOLatin1();
  EXPECT_TRUE(out->WriteLine(kUmlauts) && out->Close());
  EXPECT_EQ(Read("t.txt"), QByteArray("Gr\xFC\xDF" "e\n"));
  in = Item("t.txt")->OpenAsTextFile();
  in->Encoding = TextEncoding::ISOLatin1();
  EXPECT_EQ(in->ReadLine(), kUmlauts);
  EXPECT_NE(Item("t.txt")->OpenAsTextFile()->ReadLine(), kUmlauts);
}

TEST_F(FilesTest, TextLinesEndAtCrLfOrLfAlsoWhereTheyStraddleTheStreamsBlocks) {
  const QByteArray head(65535, 'a');  // the stream reads 64 KiB at a time
  const std::pair<QByteArray, QStringList> rows[] = {
      {"dos\r\nunix\n\r\nmac\rstays\nlast", {"dos", "unix", "", "mac\rstays", "last"}},
      {"", {}},
      // "ü" (C3 BC), then "\r\n", straddle the first block's end.
      {head + "\xC3\xBC" "b\nnext\n", {QString::fromLatin1(head) + QString::fromUtf8("\xC3\xBC" "b"), "next"}},
      {head + "\r\nb", {QString::fromLatin1(head), "b"}},
  };
  for (const auto& [content, lines] : rows) {
    Write("in.txt", content);
    auto in = Item("in.txt")->OpenAsTextFile();
    EXPECT_EQ(Lines(*in), lines) << content.left(30).toStdString();
    EXPECT_EQ(in->ReadLine() + in->ReadAll(), QString());  // nothing after the end
  }
  Write("in.txt", "one\r\ntwo\nthree");
  auto in = Item("in.txt")->OpenAsTextFile();
  EXPECT_EQ(in->ReadLine(), "one");
  EXPECT_EQ(in->ReadAll(), "two\nthree");
  EXPECT_TRUE(in->EOF());
}

}  // namespace
}  // namespace velmar::test
