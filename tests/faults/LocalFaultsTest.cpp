// Local faults against the scripted server: a source that cannot be read or is gone by its
// turn, a destination that cannot be written, and a file that cannot grow (the disk full).
// Each ends with its own message, and what was transferred before stays as it was.
#include "platform/FolderItem.h"
#include "support/OperationRow.h"

#include <QFile>

#include <sys/resource.h>

#include <csignal>

namespace velmar::test {
namespace {

const QByteArray kSmall = RandomBytes(20000, 11), kLarge = RandomBytes(400000, 12);

// Files may grow to 100000 bytes while the row runs (as when the disk fills up); writes past
// that fail instead of raising SIGXFSZ.
void LimitFileSize(bool on) {
  static rlimit saved{};
  if (on) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &saved);
    const rlimit small{100000, saved.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
  } else if (saved.rlim_max) {
    setrlimit(RLIMIT_FSIZE, &saved);
  }
}

const OperationRow kResidentRows[] = {
    // A folder where the file should be: it exists, but cannot be read as a file.
    {"AnUnreadableSourceIsNamed", Start(&S::PutSingleFile, {"dir"}, {}, [](S& s) {
       QDir().mkpath(s.GetLocalDirectoryPathName() + "dir");
     }),
     {kTypeI, kPasv, {"STOR dir", {}}}, {"error\tCannot open file: dir"}},
    // A file where the destination folder should be.
    {"AnUnwritableDestinationIsNamed", Start(&S::GetSingleFile, {"x"}, {}, [](S& s) {
       WriteFile(s.GetLocalDirectoryPathName() + "file", "not a folder");
       s.SetLocalDirectoryPathName(s.GetLocalDirectoryPathName() + "file/");
     }),
     {kPasv, kTypeI, Ok("RETR x", "150 go")}, {"error\tError writing local file: x"}},
};
INSTANTIATE_TEST_SUITE_P(Local, ResidentRows, ::testing::ValuesIn(kResidentRows), RowName);

// The batch downloads b, then a: the second cannot grow past the limit, and the first keeps
// every byte, as does an older copy of a that the batch never reached.
const OperationRow kConnectingRows[] = {
    {"ADiskThatFillsEndsTheBatchAndKeepsTheFilesBefore", Start(&S::StartGetFile, {"c", "a", "b"}, {}, [](S& s) {
       WriteFile(s.GetLocalDirectoryPathName() + "c", "older c");
       LimitFileSize(true);
     }),
     {kPasv, kTypeI, {"RETR b", Served(kSmall)}, kPasv, kTypeI,
      {"RETR a", {Line("150 go"), WaitDataConnected(), DataSend(kLarge), Delay(500)}}},
     {"error\tError writing local file: a"}, {},
     [](S&, const QString& local, const ScriptedFtpServer&) {
       LimitFileSize(false);
       EXPECT_TRUE(ReadFile(local + "b") == kSmall);
       EXPECT_TRUE(ReadFile(local + "a") == kLarge.left(100000));
       EXPECT_EQ(ReadFile(local + "c"), "older c");
     }},
    // Waiting for a data connection's close has a limit of its own: a server that answers every
    // NOOP would otherwise keep the wait going for ever.
    {"ADataCloseThatNeverComesEndsTheWait", Start(&S::StartGetFile, {"f"}, {}, [](S& s) {
       s.WaitForDataClose = true;
       s.Timeout = 1000;
     }),
     QList<Exchange>{kPasv, kTypeI, {"RETR f", {Line("150 go"), WaitDataConnected(), Line("226 done")}}} +
         QList<Exchange>(100, {"NOOP", {Delay(50), Line("200 ok")}}),
     {"error\tError: the data connection did not end"}},
};
INSTANTIATE_TEST_SUITE_P(Local, ConnectingRows, ::testing::ValuesIn(kConnectingRows), RowName);

// A tree upload whose second file is removed after the walk, while the first is on its way.
TEST_F(LoggedOnFixture, ASourceGoneAfterTheWalkIsNamedAndTheFileBeforeItArrives) {
  for (const char* name : {"f", "g"}) WriteFile(local.filePath("top/") + name, QByteArray("content of ") + name);
  ScriptLogOn();
  for (const Exchange& e : {Ok("CWD /up"), kTypeI, kPasv}) server.Expect(e.command, e.actions);
  server.ExpectPrefix("STOR ", {Line("150 go"), DataReceiveAll(), Delay(100), Line("226 done")});
  server.Expect("PASV", {OpenPassive()}).ExpectPrefix("STOR ", {});
  session->SetServerDirectoryPathName("/up");
  session->SetLocalFolderItem(GetFolderItem(local.filePath("top/")));
  session->StartPutDir();
  ASSERT_TRUE(RunUntil([&] { return server.Commands().filter("STOR ").size() == 1; }));
  const QString first = server.Commands().filter("STOR ").first().mid(5), second = first == "f" ? "g" : "f";
  ASSERT_TRUE(QFile::remove(local.filePath("top/") + second));
  ASSERT_TRUE(WaitForEnds(1));
  EXPECT_EQ(RecordingStatus::Ends(*log), QStringList{"error\tCannot Find File: " + second});
  EXPECT_EQ(server.ReceivedData(), QList<QByteArray>{"content of " + first.toLatin1()});
}

}  // namespace
}  // namespace velmar::test
