// Files and folders: FolderItem over the real file system in temporary folders, and
// BinaryStream reads and writes, including positions past 2 GiB.
#include "platform/BinaryStream.h"
#include "platform/FolderItem.h"
#include "platform/TextOutputStream.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace velmar::test {
namespace {

class FilesTest : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(temp_.isValid()); }

  QString Path(const QString& relative) const { return temp_.path() + u'/' + relative; }

  void WriteFile(const QString& relative, const QByteArray& content) const {
    QFile file(Path(relative));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(content), content.size());
  }

  QByteArray ReadFile(const QString& relative) const {
    QFile file(Path(relative));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
  }

  std::shared_ptr<FolderItem> Root() const { return GetFolderItem(temp_.path()); }

  QTemporaryDir temp_;
};

int Mode(const QString& path) {
  struct stat info {};
  if (::stat(QFile::encodeName(path).constData(), &info) != 0) return -1;
  return static_cast<int>(info.st_mode & 07777);
}

TEST_F(FilesTest, GetFolderItemRefusesEmptyAndRelativePaths) {
  EXPECT_EQ(GetFolderItem(QString()), nullptr);
  EXPECT_EQ(GetFolderItem(QStringLiteral("relative/file.txt")), nullptr);
  EXPECT_EQ(GetFolderItem(QStringLiteral("file.txt")), nullptr);
  EXPECT_EQ(GetFolderItem(QStringLiteral("./file.txt")), nullptr);
  ASSERT_NE(GetFolderItem(QStringLiteral("/")), nullptr);
  EXPECT_EQ(GetFolderItem(QStringLiteral("/"))->AbsolutePath(), QStringLiteral("/"));
  EXPECT_TRUE(GetFolderItem(QStringLiteral("/"))->Directory());
  // Above the root is the root.
  EXPECT_EQ(GetFolderItem(QStringLiteral("/.."))->AbsolutePath(), QStringLiteral("/"));
  EXPECT_EQ(GetFolderItem(QStringLiteral("/../../tmp"))->AbsolutePath(), QStringLiteral("/tmp/"));
}

TEST_F(FilesTest, MissingItemExistsNotAndOpensNot) {
  auto missing = GetFolderItem(Path(QStringLiteral("missing.bin")));
  ASSERT_NE(missing, nullptr);
  EXPECT_FALSE(missing->Exists());
  EXPECT_FALSE(missing->Directory());
  EXPECT_EQ(missing->Length(), 0);
  EXPECT_EQ(missing->Count(), 0);
  EXPECT_EQ(missing->Item(1), nullptr);
  EXPECT_EQ(missing->Name(), QStringLiteral("missing.bin"));
  EXPECT_EQ(missing->OpenAsBinaryFile(false), nullptr);
  EXPECT_FALSE(missing->LastError().isEmpty());
  EXPECT_EQ(missing->OpenAsBinaryFile(true), nullptr);
  EXPECT_EQ(missing->OpenAsTextFile(), nullptr);
  EXPECT_FALSE(missing->Delete());
  // Opening for writing must not have created it.
  EXPECT_FALSE(QFile::exists(Path(QStringLiteral("missing.bin"))));
}

TEST_F(FilesTest, PathsAndNamesOfFilesAndFolders) {
  ASSERT_TRUE(QDir(temp_.path()).mkdir(QStringLiteral("sub")));
  WriteFile(QStringLiteral("sub/file.txt"), "12345");

  auto folder = GetFolderItem(Path(QStringLiteral("sub")));
  ASSERT_NE(folder, nullptr);
  EXPECT_TRUE(folder->Exists());
  EXPECT_TRUE(folder->Directory());
  EXPECT_EQ(folder->Name(), QStringLiteral("sub"));
  EXPECT_EQ(folder->AbsolutePath(), Path(QStringLiteral("sub/")));
  EXPECT_EQ(folder->Length(), 0);
  // A trailing "/" or a "." in the given path make no difference.
  EXPECT_EQ(GetFolderItem(Path(QStringLiteral("sub/")))->AbsolutePath(), Path(QStringLiteral("sub/")));
  EXPECT_EQ(GetFolderItem(Path(QStringLiteral("./sub/.")))->Name(), QStringLiteral("sub"));

  auto file = folder->Child(QStringLiteral("file.txt"));
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(file->Exists());
  EXPECT_FALSE(file->Directory());
  EXPECT_EQ(file->Name(), QStringLiteral("file.txt"));
  EXPECT_EQ(file->AbsolutePath(), Path(QStringLiteral("sub/file.txt")));
  EXPECT_EQ(file->Length(), 5);
  EXPECT_EQ(file->Count(), 0);
  EXPECT_EQ(file->Item(1), nullptr);

  // A child of a missing name is an item that does not exist yet.
  auto fresh = folder->Child(QStringLiteral("new.txt"));
  ASSERT_NE(fresh, nullptr);
  EXPECT_FALSE(fresh->Exists());
  EXPECT_EQ(fresh->AbsolutePath(), Path(QStringLiteral("sub/new.txt")));
}

TEST_F(FilesTest, ChildRefusesNonNamesAndNonFolders) {
  WriteFile(QStringLiteral("file.txt"), "x");
  auto root = Root();
  EXPECT_EQ(root->Child(QString()), nullptr);
  EXPECT_EQ(root->Child(QStringLiteral("a/b")), nullptr);
  EXPECT_EQ(root->Child(QStringLiteral("/")), nullptr);
  EXPECT_EQ(root->Child(QStringLiteral("..")), nullptr);
  EXPECT_EQ(root->Child(QStringLiteral(".")), nullptr);
  EXPECT_EQ(root->Child(QStringLiteral("file.txt"))->Child(QStringLiteral("x")), nullptr);
  EXPECT_EQ(GetFolderItem(Path(QStringLiteral("missing")))->Child(QStringLiteral("x")), nullptr);
  // The root's children get no double "/".
  ASSERT_NE(GetFolderItem(QStringLiteral("/"))->Child(QStringLiteral("tmp")), nullptr);
  EXPECT_EQ(GetFolderItem(QStringLiteral("/"))->Child(QStringLiteral("tmp"))->AbsolutePath(), QStringLiteral("/tmp/"));
}

TEST_F(FilesTest, ItemsComeInOrderOfName) {
  WriteFile(QStringLiteral("b"), "");
  WriteFile(QStringLiteral("a"), "");
  WriteFile(QStringLiteral("C"), "");
  WriteFile(QStringLiteral(".hidden"), "");
  ASSERT_TRUE(QDir(temp_.path()).mkdir(QStringLiteral("d")));
  WriteFile(QStringLiteral("d/inner"), "");

  auto root = Root();
  ASSERT_EQ(root->Count(), 5);
  QStringList names;
  for (int i = 1; i <= 5; ++i) {
    auto item = root->Item(i);
    ASSERT_NE(item, nullptr) << i;
    names << item->Name();
  }
  EXPECT_EQ(names, (QStringList{QStringLiteral(".hidden"), QStringLiteral("C"), QStringLiteral("a"),
                                QStringLiteral("b"), QStringLiteral("d")}));
  EXPECT_TRUE(root->Item(5)->Directory());
  EXPECT_EQ(root->Item(5)->Count(), 1);
  EXPECT_EQ(root->Item(0), nullptr);
  EXPECT_EQ(root->Item(6), nullptr);
  EXPECT_EQ(root->Item(-1), nullptr);
  // Count reads the folder anew.
  WriteFile(QStringLiteral("e"), "");
  EXPECT_EQ(root->Count(), 6);
  EXPECT_EQ(root->Item(6)->Name(), QStringLiteral("e"));
}

TEST_F(FilesTest, DeleteRemovesFilesAndEmptyFoldersOnly) {
  ASSERT_TRUE(QDir(temp_.path()).mkdir(QStringLiteral("full")));
  ASSERT_TRUE(QDir(temp_.path()).mkdir(QStringLiteral("empty")));
  WriteFile(QStringLiteral("full/keep.txt"), "keep");
  WriteFile(QStringLiteral("file.txt"), "x");
  auto root = Root();

  EXPECT_TRUE(root->Child(QStringLiteral("file.txt"))->Delete());
  EXPECT_FALSE(QFile::exists(Path(QStringLiteral("file.txt"))));
  EXPECT_TRUE(root->Child(QStringLiteral("empty"))->Delete());
  EXPECT_FALSE(QFileInfo::exists(Path(QStringLiteral("empty"))));

  auto full = root->Child(QStringLiteral("full"));
  EXPECT_FALSE(full->Delete());
  EXPECT_FALSE(full->LastError().isEmpty());
  EXPECT_EQ(ReadFile(QStringLiteral("full/keep.txt")), QByteArray("keep"));
}

TEST_F(FilesTest, AWalkDeletesEveryEntry) {
  for (int i = 0; i < 7; ++i) WriteFile(QStringLiteral("f%1").arg(i), "x");
  auto root = Root();
  const int count = root->Count();
  ASSERT_EQ(count, 7);
  // Forward: the listing of Count() stays valid while entries go.
  for (int i = 1; i <= count; ++i) {
    auto item = root->Item(i);
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->Delete()) << item->Name().toStdString();
  }
  EXPECT_EQ(root->Count(), 0);
}

TEST_F(FilesTest, CreateAsFolder) {
  auto folder = GetFolderItem(Path(QStringLiteral("made")));
  EXPECT_TRUE(folder->CreateAsFolder());
  EXPECT_TRUE(folder->Directory());
  EXPECT_TRUE(folder->CreateAsFolder());  // already there
  EXPECT_EQ(folder->AbsolutePath(), Path(QStringLiteral("made/")));

  EXPECT_FALSE(GetFolderItem(Path(QStringLiteral("no/such/parent")))->CreateAsFolder());
  WriteFile(QStringLiteral("file"), "data");
  EXPECT_FALSE(GetFolderItem(Path(QStringLiteral("file")))->CreateAsFolder());
  EXPECT_EQ(ReadFile(QStringLiteral("file")), QByteArray("data"));
}

TEST_F(FilesTest, BinaryStreamWritesReadsAndSeeks) {
  auto item = GetFolderItem(Path(QStringLiteral("data.bin")));
  auto out = item->CreateBinaryFile(QStringLiteral("application/octet-stream"));
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(out->IsOpen());
  EXPECT_TRUE(out->EOF());
  EXPECT_TRUE(out->Write(QByteArray("0123456789")));
  EXPECT_TRUE(out->Write(QByteArray()));
  EXPECT_EQ(out->Position(), 10);
  EXPECT_EQ(out->Length(), 10);
  // Written bytes are in the file at once, before Close.
  EXPECT_EQ(ReadFile(QStringLiteral("data.bin")), QByteArray("0123456789"));
  EXPECT_TRUE(out->SetPosition(2));
  EXPECT_FALSE(out->EOF());
  EXPECT_EQ(out->Read(3), QByteArray("234"));
  EXPECT_FALSE(out->SetPosition(-1));
  out->Close();
  EXPECT_FALSE(out->IsOpen());
  EXPECT_EQ(item->Length(), 10);

  auto in = item->OpenAsBinaryFile(false);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Length(), 10);
  EXPECT_EQ(in->Read(4), QByteArray("0123"));
  EXPECT_EQ(in->Position(), 4);
  EXPECT_EQ(in->Read(100), QByteArray("456789"));  // fewer at the end
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->Read(100), QByteArray());  // none past it
  EXPECT_EQ(in->Read(0), QByteArray());
  // Read-only: a write fails, says why, and changes nothing.
  EXPECT_FALSE(in->Write(QByteArray("zz")));
  EXPECT_FALSE(in->LastError().isEmpty());
  in->Close();
  EXPECT_EQ(ReadFile(QStringLiteral("data.bin")), QByteArray("0123456789"));
}

TEST_F(FilesTest, OpeningWritableKeepsContentAndCreatingTruncates) {
  WriteFile(QStringLiteral("data.bin"), "0123456789");
  auto item = GetFolderItem(Path(QStringLiteral("data.bin")));
  {
    auto rw = item->OpenAsBinaryFile(true);
    ASSERT_NE(rw, nullptr);
    EXPECT_EQ(rw->Length(), 10);
    ASSERT_TRUE(rw->SetPosition(8));
    EXPECT_TRUE(rw->Write(QByteArray("ABCD")));  // overwrites two bytes and appends two
    EXPECT_EQ(rw->Length(), 12);
  }  // released: closed
  EXPECT_EQ(ReadFile(QStringLiteral("data.bin")), QByteArray("01234567ABCD"));

  auto created = item->CreateBinaryFile(QString());
  ASSERT_NE(created, nullptr);
  EXPECT_EQ(created->Length(), 0);
  created->Close();
  EXPECT_EQ(item->Length(), 0);
}

TEST_F(FilesTest, WritingToAClosedStreamDoesNothing) {
  auto item = GetFolderItem(Path(QStringLiteral("data.bin")));
  auto stream = item->CreateBinaryFile(QString());
  ASSERT_NE(stream, nullptr);
  ASSERT_TRUE(stream->Write(QByteArray("kept")));
  stream->Close();
  EXPECT_FALSE(stream->Write(QByteArray("lost")));
  EXPECT_FALSE(stream->LastError().isEmpty());
  EXPECT_EQ(stream->Read(10), QByteArray());
  EXPECT_TRUE(stream->EOF());
  EXPECT_FALSE(stream->SetPosition(0));
  stream->Close();  // a second close is harmless too
  EXPECT_EQ(ReadFile(QStringLiteral("data.bin")), QByteArray("kept"));
}

TEST_F(FilesTest, AFailedWriteIsReported) {
  // /dev/full takes no byte: every write fails as on a full disk.
  auto full = GetFolderItem(QStringLiteral("/dev/full"));
  if (!full->Exists()) GTEST_SKIP() << "no /dev/full on this machine";
  auto stream = full->OpenAsBinaryFile(true);
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(stream->LastError().isEmpty());
  EXPECT_FALSE(stream->Write(QByteArray(4096, 'x')));
  EXPECT_FALSE(stream->LastError().isEmpty());
}

TEST_F(FilesTest, FoldersDoNotOpenAsFiles) {
  ASSERT_TRUE(QDir(temp_.path()).mkdir(QStringLiteral("folder")));
  auto folder = GetFolderItem(Path(QStringLiteral("folder")));
  EXPECT_EQ(folder->OpenAsBinaryFile(false), nullptr);
  EXPECT_EQ(folder->OpenAsBinaryFile(true), nullptr);
  EXPECT_EQ(folder->OpenAsTextFile(), nullptr);
  EXPECT_EQ(folder->CreateBinaryFile(QString()), nullptr);
  EXPECT_EQ(folder->CreateTextFile(), nullptr);
  EXPECT_TRUE(folder->Directory());
}

TEST_F(FilesTest, UnreadableFilesDoNotOpen) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads files whatever their mode";
  WriteFile(QStringLiteral("secret"), "x");
  ASSERT_EQ(::chmod(QFile::encodeName(Path(QStringLiteral("secret"))).constData(), 0), 0);
  auto secret = GetFolderItem(Path(QStringLiteral("secret")));
  EXPECT_TRUE(secret->Exists());
  EXPECT_EQ(secret->OpenAsBinaryFile(false), nullptr);
  EXPECT_FALSE(secret->LastError().isEmpty());
  EXPECT_EQ(secret->OpenAsTextFile(), nullptr);
}

TEST_F(FilesTest, ReadsAtPositionsPastTwoGiB) {
  constexpr qint64 kSize = 3LL * 1024 * 1024 * 1024;
  constexpr qint64 kPast2G = (1LL << 31) + 5;
  {
    // Sparse: the file has its length without its blocks on disk.
    QFile file(Path(QStringLiteral("big.bin")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    if (!file.resize(kSize)) GTEST_SKIP() << "cannot make a 3 GiB sparse file here";
  }
  auto item = GetFolderItem(Path(QStringLiteral("big.bin")));
  EXPECT_EQ(item->Length(), kSize);
  {
    auto rw = item->OpenAsBinaryFile(true);
    ASSERT_NE(rw, nullptr);
    ASSERT_TRUE(rw->SetPosition(kPast2G));
    ASSERT_TRUE(rw->Write(QByteArray("MIDDLE")));
    ASSERT_TRUE(rw->SetPosition(kSize - 4));
    ASSERT_TRUE(rw->Write(QByteArray("TAIL")));
    EXPECT_EQ(rw->Length(), kSize);
  }

  auto in = item->OpenAsBinaryFile(false);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Length(), kSize);
  ASSERT_TRUE(in->SetPosition(kPast2G - 2));
  EXPECT_EQ(in->Read(8), QByteArray("\0\0MIDDLE", 8));
  EXPECT_EQ(in->Position(), kPast2G + 6);

  // The last blocks, as an upload reads them: full blocks, then a short one, then nothing.
  constexpr qint64 kBlock = 65536;
  ASSERT_TRUE(in->SetPosition(kSize - 2 * kBlock - 100));
  QList<qint64> sizes;
  QByteArray last;
  for (int i = 0; i < 10 && !in->EOF(); ++i) {
    last = in->Read(kBlock);
    sizes << last.size();
  }
  EXPECT_EQ(sizes, (QList<qint64>{kBlock, kBlock, 100}));
  EXPECT_TRUE(last.endsWith("TAIL"));
  EXPECT_EQ(in->Position(), kSize);
  EXPECT_TRUE(in->EOF());
  EXPECT_TRUE(in->Read(kBlock).isEmpty());
}

TEST_F(FilesTest, CreateTextFileAppliesTheMode) {
  auto fresh = GetFolderItem(Path(QStringLiteral("prefs")));
  auto out = fresh->CreateTextFile(0600);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(Mode(Path(QStringLiteral("prefs"))), 0600);
  out->Close();

  // An existing file readable by all is narrowed before anything is written to it.
  WriteFile(QStringLiteral("old"), "old secret");
  ASSERT_EQ(::chmod(QFile::encodeName(Path(QStringLiteral("old"))).constData(), 0644), 0);
  auto old = GetFolderItem(Path(QStringLiteral("old")))->CreateTextFile(0600);
  ASSERT_NE(old, nullptr);
  EXPECT_EQ(Mode(Path(QStringLiteral("old"))), 0600);
  EXPECT_EQ(ReadFile(QStringLiteral("old")), QByteArray());  // emptied
  old->Close();

  // The default leaves the mode to the umask.
  const mode_t mask = ::umask(022);
  ::umask(mask);
  auto plain = GetFolderItem(Path(QStringLiteral("plain")))->CreateTextFile();
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(Mode(Path(QStringLiteral("plain"))), 0666 & ~static_cast<int>(mask));
}

class PreferencesFolderTest : public FilesTest {
protected:
  void SetUp() override {
    FilesTest::SetUp();
    savedHome_ = qgetenv("HOME");
    savedConfig_ = qgetenv("XDG_CONFIG_HOME");
    hadConfig_ = qEnvironmentVariableIsSet("XDG_CONFIG_HOME");
  }
  void TearDown() override {
    qputenv("HOME", savedHome_);
    if (hadConfig_) qputenv("XDG_CONFIG_HOME", savedConfig_);
    else qunsetenv("XDG_CONFIG_HOME");
  }

private:
  QByteArray savedHome_;
  QByteArray savedConfig_;
  bool hadConfig_ = false;
};

TEST_F(PreferencesFolderTest, UsesXdgConfigHomeAndCreatesIt) {
  qputenv("XDG_CONFIG_HOME", QFile::encodeName(Path(QStringLiteral("a/config"))));
  auto folder = PreferencesFolder();
  ASSERT_NE(folder, nullptr);
  EXPECT_TRUE(folder->Directory());
  EXPECT_EQ(folder->AbsolutePath(), Path(QStringLiteral("a/config/")));
  EXPECT_EQ(Mode(Path(QStringLiteral("a/config"))), 0700);
}

TEST_F(PreferencesFolderTest, FallsBackToDotConfigInHome) {
  qputenv("HOME", QFile::encodeName(temp_.path()));
  qunsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path(QStringLiteral(".config/")));
  // A relative value is ignored.
  qputenv("XDG_CONFIG_HOME", "relative/config");
  EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path(QStringLiteral(".config/")));
  // An existing folder is used as it is.
  ASSERT_TRUE(QDir(temp_.path()).mkdir(QStringLiteral("cfg")));
  qputenv("XDG_CONFIG_HOME", QFile::encodeName(Path(QStringLiteral("cfg"))));
  EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path(QStringLiteral("cfg/")));
}

}  // namespace
}  // namespace velmar::test
