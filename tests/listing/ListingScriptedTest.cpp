// The listing operations against the scripted server: the text of one directory into
// DirectoryFileList, whichever of the 226 and the data connection's close comes first.
#include "support/OperationRow.h"

namespace velmar::test {
namespace {

const QByteArray kPart1 = "-rw-r--r--   1 o  g   10 Jan 15 10:30 a file\r\ndrwxr-xr-x   2 o  g 4096 Jan 1";
const QByteArray kPart2 = "5 10:30 sub\r\n";
const QString kListed = "success\tThe file list has been transferred.";
const Exchange kPwd257 = Pwd("/pub");
// The 226 before the close: a real NOOP, answered after the close, lets the listing be handed over.
const Exchange k226First = {
    "LIST", {Line("150 go"), WaitDataConnected(), DataSend(kPart1), Line("226 done"), Delay(100), DataClose()}};
const auto kList = Start(&S::GetDirList, {});

auto Listed(const QByteArray& text) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DirectoryFileList, QString::fromLatin1(text)); };
}

const OperationRow kRows[] = {
    {"CloseBefore226AndSeveralReads", kList, {kPasv, kPwd257, {"LIST", Listing(kPart1 + "|" + kPart2)}}, {kListed},
     {"status\tGet full directory list for /pub", "status\tGet working directory for "}, Listed(kPart1 + kPart2)},
    {"Reply226BeforeTheClose", kList, {kPasv, kPwd257, k226First, {"NOOP", {Delay(100), Line("200 ok")}}}, {kListed},
     {"response\tFORCENOOP"}, Listed(kPart1)},
    {"ActiveModeListensBeforePort", Start(&S::GetDirList, {}, {}, ActiveAtRangeEnd(32061)),
     {Port(32062), kPwd257, {"LIST", QList{ConnectActive()} + Listing(kPart2)}}, {kListed}, {}, Listed(kPart2)},
    {"NameListOfHiddenEntries", Start(&S::GetDirList, {}, {}, [](S& s) { s.UseNameList = s.ShowInvisible = true; }),
     {kPasv, kPwd257, {"NLST -a", Listing(".x\r\n")}}, {kListed}, {}, Listed(".x\r\n")},
    {"HiddenEntries", Start(&S::GetDirList, {}, {}, [](S& s) { s.ShowInvisible = true; }),
     {kPasv, kPwd257, {"LIST -a", {Line("125 go"), WaitDataConnected(), DataClose(), Line("226 ok")}}}, {kListed}},
    {"PwdWithoutQuotes", kList, {kPasv, Ok("PWD", "257 /pub"), {"LIST", Listing("")}}, {kListed},
     {"status\tGet full directory list for "},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.CurrentWorkingDirectory, ""); }},
    {"RefusedListing", kList, {kPasv, kPwd257, Ok("LIST", "550 no")}, {Err("550 no")}},
    {"RefusedPolling", kList, {kPasv, kPwd257, k226First, Ok("NOOP", "500 no")}, {Err("500 no")}},
};
INSTANTIATE_TEST_SUITE_P(Listing, ResidentRows, ::testing::ValuesIn(kRows), RowName);

// The connecting listing logs on (a 230 to USER still sends PASS), changes directory when one
// is given, lists in ASCII whatever the transfer type, and quits.
const QList<Exchange> kLogon = {Ok("", "220 ready"), Ok("USER u", "230 in already"), Ok("PASS p", "230 in")};
const QList<Exchange> kListing = {kTypeA, kPasv, kPwd257, {"LIST", Listing(kPart2)}, kQuit};

const OperationRow kConnectingRows[] = {
    {"StartGetDirListInADirectory", Start(&S::StartGetDirList, {}, "/pub"),
     kLogon + QList<Exchange>{Ok("CWD /pub")} + kListing, {kListed}, {"status\tStart Get Directory List Sequence"},
     Listed(kPart2)},
    {"StartGetDirListWhereItLogsOn", Start(&S::StartGetDirList, {}), kLogon + kListing, {kListed}, {}, Listed(kPart2)},
};
INSTANTIATE_TEST_SUITE_P(Listing, ConnectingRows, ::testing::ValuesIn(kConnectingRows), RowName);

}  // namespace
}  // namespace velmar::test
