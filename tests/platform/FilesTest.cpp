// Files and folders: FolderItem over the real file system in temporary folders, and
// BinaryStream reads and writes, including positions past 2 GiB.
#include "platform/BinaryStream.h"
#include "platform/FolderItem.h"
#include "platform/TextOutputStream.h"
#include "support/TestFiles.h"

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
  std::shared_ptr<FolderItem> Item(const QString& relative) const { return GetFolderItem(Path(relative)); }
  void Write(const QString& relative, const QByteArray& content) const { WriteFile(Path(relative), content); }
  QByteArray Read(const QString& relative) const { return ReadFile(Path(relative)); }
  void MakeFolder(const QString& relative) const { ASSERT_TRUE(QDir().mkpath(Path(relative))); }
  std::shared_ptr<FolderItem> Root() const { return GetFolderItem(temp_.path()); }

  QTemporaryDir temp_;
};

int Mode(const QString& path) {
  struct stat info {};
  if (::stat(QFile::encodeName(path).constData(), &info) != 0) return -1;
  return static_cast<int>(info.st_mode & 07777);
}

TEST_F(FilesTest, RefusesWhatIsNotAnAbsolutePathOrAName) {
  for (const char* path : {"", "relative/file.txt", "file.txt", "./file.txt"})
    EXPECT_EQ(GetFolderItem(path), nullptr) << path;
  Write("file.txt", "x");
  for (const QString& name : {QString(), QString("a/b"), QString("/"), QString(".."), QString(".")})
    EXPECT_EQ(Root()->Child(name), nullptr) << name.toStdString();
  // Only folders have children.
  EXPECT_EQ(Item("file.txt")->Child("x"), nullptr);
  EXPECT_EQ(Item("missing")->Child("x"), nullptr);
}

TEST_F(FilesTest, TheRootIsAFolderAndWhatLiesAboveIt) {
  ASSERT_NE(GetFolderItem("/"), nullptr);
  EXPECT_TRUE(GetFolderItem("/")->Directory());
  const std::pair<const char*, const char*> roots[] = {{"/", "/"}, {"/..", "/"}, {"/../../tmp", "/tmp/"}};
  for (const auto& [path, expected] : roots) EXPECT_EQ(GetFolderItem(path)->AbsolutePath(), expected) << path;
  // The root's children get no double "/".
  ASSERT_NE(GetFolderItem("/")->Child("tmp"), nullptr);
  EXPECT_EQ(GetFolderItem("/")->Child("tmp")->AbsolutePath(), "/tmp/");
}

TEST_F(FilesTest, PathsAndNamesOfFilesFoldersAndMissingItems) {
  Write("sub/file.txt", "12345");
  auto folder = Item("sub");
  ASSERT_NE(folder, nullptr);
  EXPECT_TRUE(folder->Exists());
  EXPECT_TRUE(folder->Directory());
  EXPECT_EQ(folder->Name(), "sub");
  EXPECT_EQ(folder->AbsolutePath(), Path("sub/"));
  EXPECT_EQ(folder->Length(), 0);
  // A trailing "/" or a "." in the given path make no difference.
  EXPECT_EQ(Item("sub/")->AbsolutePath(), Path("sub/"));
  EXPECT_EQ(Item("./sub/.")->Name(), "sub");

  auto file = folder->Child("file.txt");
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(file->Exists());
  EXPECT_FALSE(file->Directory());
  EXPECT_EQ(file->Name(), "file.txt");
  EXPECT_EQ(file->AbsolutePath(), Path("sub/file.txt"));
  EXPECT_EQ(file->Length(), 5);

  // A child of a missing name is an item that does not exist yet, and opens not.
  auto missing = folder->Child("new.txt");
  ASSERT_NE(missing, nullptr);
  EXPECT_FALSE(missing->Exists());
  EXPECT_FALSE(missing->Directory());
  EXPECT_EQ(missing->Name(), "new.txt");
  EXPECT_EQ(missing->AbsolutePath(), Path("sub/new.txt"));
  EXPECT_EQ(missing->Length(), 0);
  EXPECT_EQ(missing->Count(), 0);
  EXPECT_EQ(missing->Item(1), nullptr);
  EXPECT_EQ(missing->OpenAsBinaryFile(false), nullptr);
  EXPECT_FALSE(missing->LastError().isEmpty());
  EXPECT_EQ(missing->OpenAsBinaryFile(true), nullptr);
  EXPECT_EQ(missing->OpenAsTextFile(), nullptr);
  EXPECT_FALSE(missing->Delete());
  // Opening for writing must not have created it.
  EXPECT_FALSE(QFile::exists(Path("sub/new.txt")));
}

TEST_F(FilesTest, ItemsComeInOrderOfNameAndAWalkDeletesFilesAndEmptyFoldersOnly) {
  for (const char* name : {"b", "a", "C", ".hidden", "full/keep.txt"}) Write(name, "keep");
  MakeFolder("empty");
  auto root = Root();
  const int count = root->Count();
  ASSERT_EQ(count, 6);
  QStringList names;
  for (int i = 1; i <= count; ++i) {
    auto item = root->Item(i);
    ASSERT_NE(item, nullptr) << i;
    names << item->Name();
  }
  EXPECT_EQ(names, (QStringList{".hidden", "C", "a", "b", "empty", "full"}));
  EXPECT_TRUE(root->Item(6)->Directory());
  EXPECT_EQ(root->Item(6)->Count(), 1);
  for (int outside : {0, 7, -1}) EXPECT_EQ(root->Item(outside), nullptr) << outside;

  // Forward: the listing of Count() stays valid while entries go.
  for (int i = 1; i <= count; ++i) {
    auto item = root->Item(i);
    ASSERT_NE(item, nullptr);
    const bool full = item->Name() == "full";
    EXPECT_EQ(item->Delete(), !full) << item->Name().toStdString();
    EXPECT_EQ(item->LastError().isEmpty(), !full) << item->Name().toStdString();
  }
  EXPECT_FALSE(QFileInfo::exists(Path("empty")));
  EXPECT_EQ(Read("full/keep.txt"), "keep");
  // Count reads the folder anew.
  Write("e", "");
  EXPECT_EQ(root->Count(), 2);
  EXPECT_EQ(root->Item(1)->Name(), "e");
}

TEST_F(FilesTest, CreateAsFolderAndFoldersDoNotOpenAsFiles) {
  auto folder = Item("made");
  EXPECT_TRUE(folder->CreateAsFolder());
  EXPECT_TRUE(folder->Directory());
  EXPECT_TRUE(folder->CreateAsFolder());  // already there
  EXPECT_EQ(folder->AbsolutePath(), Path("made/"));
  EXPECT_EQ(folder->OpenAsBinaryFile(false), nullptr);
  EXPECT_EQ(folder->OpenAsBinaryFile(true), nullptr);
  EXPECT_EQ(folder->OpenAsTextFile(), nullptr);
  EXPECT_EQ(folder->CreateBinaryFile(QString()), nullptr);
  EXPECT_EQ(folder->CreateTextFile(), nullptr);
  EXPECT_TRUE(folder->Directory());

  EXPECT_FALSE(Item("no/such/parent")->CreateAsFolder());
  Write("file", "data");
  EXPECT_FALSE(Item("file")->CreateAsFolder());
  EXPECT_EQ(Read("file"), "data");
}

TEST_F(FilesTest, BinaryStreamWritesReadsSeeksAndCloses) {
  auto item = Item("data.bin");
  auto out = item->CreateBinaryFile("application/octet-stream");
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(out->IsOpen());
  EXPECT_TRUE(out->EOF());
  EXPECT_TRUE(out->Write("0123456789"));
  EXPECT_TRUE(out->Write(QByteArray()));
  EXPECT_EQ(out->Position(), 10);
  EXPECT_EQ(out->Length(), 10);
  // Written bytes are in the file at once, before Close.
  EXPECT_EQ(Read("data.bin"), "0123456789");
  EXPECT_TRUE(out->SetPosition(2));
  EXPECT_FALSE(out->EOF());
  EXPECT_EQ(out->Read(3), "234");
  EXPECT_FALSE(out->SetPosition(-1));
  out->Close();
  EXPECT_FALSE(out->IsOpen());
  EXPECT_EQ(item->Length(), 10);
  // Closed, it does nothing.
  EXPECT_FALSE(out->Write("lost"));
  EXPECT_FALSE(out->LastError().isEmpty());
  EXPECT_EQ(out->Read(10), QByteArray());
  EXPECT_TRUE(out->EOF());
  EXPECT_FALSE(out->SetPosition(0));
  out->Close();  // a second close is harmless too

  // Reading in blocks is BinaryStreamTest's; here the edges of a small file.
  auto in = item->OpenAsBinaryFile(false);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Read(0), QByteArray());
  EXPECT_EQ(in->Read(100), "0123456789");  // fewer at the end
  EXPECT_TRUE(in->EOF());
  // Read-only: a write fails, says why, and changes nothing.
  EXPECT_FALSE(in->Write("zz"));
  EXPECT_FALSE(in->LastError().isEmpty());
  in->Close();
  EXPECT_EQ(Read("data.bin"), "0123456789");
}

TEST_F(FilesTest, OpeningWritableKeepsContentAndCreatingTruncates) {
  Write("data.bin", "0123456789");
  auto item = Item("data.bin");
  {
    auto rw = item->OpenAsBinaryFile(true);
    ASSERT_NE(rw, nullptr);
    EXPECT_EQ(rw->Length(), 10);
    ASSERT_TRUE(rw->SetPosition(8));
    EXPECT_TRUE(rw->Write("ABCD"));  // overwrites two bytes and appends two
    EXPECT_EQ(rw->Length(), 12);
  }  // released: closed
  EXPECT_EQ(Read("data.bin"), "01234567ABCD");

  auto created = item->CreateBinaryFile(QString());
  ASSERT_NE(created, nullptr);
  EXPECT_EQ(created->Length(), 0);
  created->Close();
  EXPECT_EQ(item->Length(), 0);
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

TEST_F(FilesTest, UnreadableFilesDoNotOpen) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads files whatever their mode";
  Write("secret", "x");
  ASSERT_EQ(::chmod(QFile::encodeName(Path("secret")).constData(), 0), 0);
  auto secret = Item("secret");
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
    QFile file(Path("big.bin"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    if (!file.resize(kSize)) GTEST_SKIP() << "cannot make a 3 GiB sparse file here";
  }
  auto item = Item("big.bin");
  EXPECT_EQ(item->Length(), kSize);
  {
    auto rw = item->OpenAsBinaryFile(true);
    ASSERT_NE(rw, nullptr);
    ASSERT_TRUE(rw->SetPosition(kPast2G));
    ASSERT_TRUE(rw->Write("MIDDLE"));
    ASSERT_TRUE(rw->SetPosition(kSize - 4));
    ASSERT_TRUE(rw->Write("TAIL"));
    EXPECT_EQ(rw->Length(), kSize);
  }

  auto in = item->OpenAsBinaryFile(false);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Length(), kSize);
  ASSERT_TRUE(in->SetPosition(kPast2G - 2));
  EXPECT_EQ(in->Read(8), QByteArray("\0\0MIDDLE", 8));
  EXPECT_EQ(in->Position(), kPast2G + 6);

  // A block asked for at the end is cut to what is left, then there is nothing.
  ASSERT_TRUE(in->SetPosition(kSize - 6));
  EXPECT_EQ(in->Read(65536), QByteArray("\0\0TAIL", 6));
  EXPECT_EQ(in->Position(), kSize);
  EXPECT_TRUE(in->EOF());
  EXPECT_TRUE(in->Read(65536).isEmpty());
}

TEST_F(FilesTest, CreateTextFileAppliesTheMode) {
  auto out = Item("prefs")->CreateTextFile(0600);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(Mode(Path("prefs")), 0600);
  out->Close();

  // An existing file readable by all is narrowed before anything is written to it.
  Write("old", "old secret");
  ASSERT_EQ(::chmod(QFile::encodeName(Path("old")).constData(), 0644), 0);
  auto old = Item("old")->CreateTextFile(0600);
  ASSERT_NE(old, nullptr);
  EXPECT_EQ(Mode(Path("old")), 0600);
  EXPECT_EQ(Read("old"), QByteArray());  // emptied
  old->Close();

  // The default leaves the mode to the umask.
  const mode_t mask = ::umask(022);
  ::umask(mask);
  ASSERT_NE(Item("plain")->CreateTextFile(), nullptr);
  EXPECT_EQ(Mode(Path("plain")), 0666 & ~static_cast<int>(mask));
}

TEST_F(FilesTest, PreferencesFolderUsesXdgConfigHomeOrDotConfigInHome) {
  // Puts both variables back however the test ends.
  struct Saved {
    QByteArray home = qgetenv("HOME"), config = qgetenv("XDG_CONFIG_HOME");
    bool hadConfig = qEnvironmentVariableIsSet("XDG_CONFIG_HOME");
    ~Saved() {
      qputenv("HOME", home);
      if (hadConfig) qputenv("XDG_CONFIG_HOME", config);
      else qunsetenv("XDG_CONFIG_HOME");
    }
  } saved;
  // A missing folder is made, for the owner only.
  qputenv("XDG_CONFIG_HOME", QFile::encodeName(Path("a/config")));
  auto folder = PreferencesFolder();
  ASSERT_NE(folder, nullptr);
  EXPECT_TRUE(folder->Directory());
  EXPECT_EQ(folder->AbsolutePath(), Path("a/config/"));
  EXPECT_EQ(Mode(Path("a/config")), 0700);

  qputenv("HOME", QFile::encodeName(temp_.path()));
  qunsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path(".config/"));
  // A relative value is ignored.
  qputenv("XDG_CONFIG_HOME", "relative/config");
  EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path(".config/"));
  // An existing folder is used as it is.
  MakeFolder("cfg");
  qputenv("XDG_CONFIG_HOME", QFile::encodeName(Path("cfg")));
  EXPECT_EQ(PreferencesFolder()->AbsolutePath(), Path("cfg/"));
}

}  // namespace
}  // namespace velmar::test
