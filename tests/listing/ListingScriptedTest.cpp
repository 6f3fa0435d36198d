// The listing operations against the scripted server: the text of one directory into
// DirectoryFileList, whichever of the 226 and the data connection's close comes first.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "support/OperationRow.h"

namespace velmar::test {
namespace {

using S = FTPSessionClass;

const QByteArray kPart1 = "-rw-r--r--   1 o  g   10 Jan 15 10:30 a file\r\ndrwxr-xr-x   2 o  g 4096 Jan 1";
const QByteArray kPart2 = "5 10:30 sub\r\n";
const QString kListed = "success\tThe file list has been transferred.";

auto List(std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString&) {
    if (prepare) prepare(s);
    s.GetDirList();
  };
}
auto Listed(const QByteArray& text) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DirectoryFileList, QString::fromLatin1(text)); };
}
const Exchange kPasv = {"PASV", {OpenPassive()}};
const Exchange kPwd257 = {"PWD", {Line("257 \"/pub\" is cwd")}};

const OperationRow kRows[] = {
    {"CloseBefore226AndSeveralReads", List(),
     {kPasv, kPwd257,
      {"LIST", {Line("150 go"), WaitDataConnected(), DataSend(kPart1), Delay(30), DataSend(kPart2), DataClose(),
                Delay(50), Line("226 done")}}},
     {kListed}, {"status\tGet full directory list for /pub", "status\tGet working directory for "},
     Listed(kPart1 + kPart2)},
    // The 226 first: one real NOOP, answered after the close, lets the listing be handed over.
    {"Reply226BeforeTheClose", List(),
     {kPasv, kPwd257,
      {"LIST", {Line("150 go"), WaitDataConnected(), DataSend(kPart1), Line("226 done"), Delay(100), DataClose()}},
      {"NOOP", {Delay(100), Line("200 ok")}}},
     {kListed}, {"response\tFORCENOOP"}, Listed(kPart1)},
    {"ActiveModeListensBeforePort",
     List([](S& s) {
       s.PassiveMode = false;
       s.SetDataPortRange(32501, 32600);
     }),
     {{"PORT 127,0,0,1,*", {Line("200 ok")}}, kPwd257,
      {"LIST", {ConnectActive(), Line("150 go"), DataSend(kPart2), DataClose(), Line("226 done")}}},
     {kListed}, {}, Listed(kPart2)},
    {"NameListOfHiddenEntries",
     List([](S& s) {
       s.UseNameList = true;
       s.ShowInvisible = true;
     }),
     {kPasv, kPwd257, {"NLST -a", {Line("150 go"), WaitDataConnected(), DataSend(".x\r\n"), DataClose(), Line("226 ok")}}},
     {kListed}, {}, Listed(".x\r\n")},
    {"NameList", List([](S& s) { s.UseNameList = true; }),
     {kPasv, kPwd257, {"NLST", {Line("150 go"), WaitDataConnected(), DataClose(), Line("226 ok")}}}, {kListed}, {},
     Listed("")},
    {"HiddenEntries", List([](S& s) { s.ShowInvisible = true; }),
     {kPasv, kPwd257, {"LIST -a", {Line("125 go"), WaitDataConnected(), DataClose(), Line("226 ok")}}}, {kListed}},
    {"PwdWithoutQuotes", List(),
     {kPasv, {"PWD", {Line("257 /pub")}}, {"LIST", {Line("150 go"), WaitDataConnected(), DataClose(), Line("226 ok")}}},
     {kListed}, {"status\tGet full directory list for "},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.CurrentWorkingDirectory, ""); }},
    {"RefusedListing", List(), {kPasv, kPwd257, {"LIST", {Line("550 no")}}}, {"error\tError: 550 no\n"}},
    {"RefusedPolling", List(),
     {kPasv, kPwd257,
      {"LIST", {Line("150 go"), WaitDataConnected(), DataSend(kPart1), Line("226 done"), Delay(100), DataClose()}},
      {"NOOP", {Line("500 no")}}},
     {"error\tError: 500 no\n"}},
};

class Listing : public LoggedOnFixture, public ::testing::WithParamInterface<OperationRow> {};

TEST_P(Listing, FetchesTheTextAndLeavesTheSessionUsable) { RunOperationRow(*this, GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, Listing, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

// The connecting listing logs on, changes directory when one is given, lists in ASCII
// whatever the transfer type, and quits.
TEST_F(LoggedOnFixture, StartGetDirListOnAConnectionOfItsOwn) {
  for (const QString& path : {QString("/pub"), QString()}) {
    ScriptedFtpServer server;
    session->CommandPort = server.Port();
    server.OnConnect({Line("220 ready")}).Expect("USER u", {Line("230 in already")}).Expect("PASS p", {Line("230 in")});
    if (!path.isEmpty()) server.Expect("CWD /pub", {Line("250 ok")});
    server.Expect("TYPE A", {Line("200 ok")})
        .Expect("PASV", {OpenPassive()})
        .Expect("PWD", {Line("257 \"/pub\"")})
        .Expect("LIST", {Line("150 go"), WaitDataConnected(), DataSend(kPart2), DataClose(), Line("226 ok")})
        .Expect("QUIT", {Line("221 bye")});
    const qsizetype before = RecordingStatus::Ends(*log).size();
    session->SetServerDirectoryPathName(path);
    session->StartGetDirList();
    ASSERT_TRUE(WaitForEnds(before + 1));
    EXPECT_EQ(RecordingStatus::Ends(*log).last(), kListed);
    EXPECT_EQ(server.Mismatches(), QStringList());
    EXPECT_EQ(session->DirectoryFileList, QString::fromLatin1(kPart2));
    EXPECT_EQ(session->CommandSocket, nullptr);
  }
}

}  // namespace
}  // namespace velmar::test
