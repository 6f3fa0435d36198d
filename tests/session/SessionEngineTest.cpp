// The session object and its step engine, driven directly: no network.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "session/FTPStatusClass.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

// Exposes the shared rules for direct tests.
struct EngineProbe : FTPSessionClass {
  using FTPSessionClass::FinalLineBlankForm;
  using FTPSessionClass::FinalLineHyphenForm;
};

TEST(SessionObject, ConstructorsSetTheDocumentedDefaults) {
  auto plain = std::make_shared<FTPSessionClass>();
  auto named = std::make_shared<FTPSessionClass>(QStringLiteral("7"));
  for (const auto& session : {plain, named}) {
    EXPECT_EQ(session->DataPortStart, 30003);
    EXPECT_EQ(session->DataPortEnd, 30100);
    EXPECT_GE(session->DataPort, 30003);
    EXPECT_LT(session->DataPort, 30100);
    EXPECT_EQ(session->CommandPort, 21);
    EXPECT_EQ(session->Timeout, 20000);
    EXPECT_EQ(session->SendBufferSize, 2048);
    EXPECT_EQ(session->ServerTextEncoding.Name(), QStringLiteral("ISO-8859-1"));
    EXPECT_TRUE(session->PassiveMode);
    EXPECT_EQ(session->FTPTransferType, QStringLiteral("I"));
    EXPECT_FALSE(session->ShowInvisible);
    EXPECT_FALSE(session->UseNameList);
    EXPECT_FALSE(session->FTPS);
    EXPECT_FALSE(session->IgnoreCancel);
    EXPECT_EQ(session->VelmarCRLF, QStringLiteral("\r\n"));
    EXPECT_EQ(session->FileDelimiter, QStringLiteral("/"));
    ASSERT_TRUE(session->ConnectionTimer);
    EXPECT_EQ(session->ConnectionTimer->Mode(), 0);  // off until the first step
    ASSERT_TRUE(session->FTPStatusInstance);
    EXPECT_EQ(session->FTPStatusInstance->Session, session.get());
    EXPECT_EQ(session->DataSocket, nullptr);
    EXPECT_EQ(session->CommandSocket, nullptr);
    EXPECT_TRUE(session->Files.isEmpty());
    EXPECT_EQ(session->GetFileCount(), -1);
    EXPECT_GT(session->SessionStartTime, 0);
    EXPECT_EQ(session->GetVelmarVersion(), QStringLiteral("5.0.0"));
  }
  EXPECT_EQ(plain->ID, QString());
  EXPECT_EQ(named->ID, QStringLiteral("7"));
}

TEST(SessionObject, DataPortsAreDrawnAcrossTheRange) {
  QSet<qint32> seen;
  for (int i = 0; i < 200; ++i) seen.insert(FTPSessionClass().DataPort);
  EXPECT_GT(seen.size(), 20);  // a fixed port would give 1
}

TEST(SessionObject, FilesAreAStackAndTheCountIsTheLastIndex) {
  FTPSessionClass session;
  EXPECT_EQ(session.GetNextFileName(), QString());
  session.AddFileName(QStringLiteral("a"));
  EXPECT_EQ(session.GetFileCount(), 0);
  session.AddFileName(QStringLiteral("b"));
  EXPECT_EQ(session.GetFileCount(), 1);
  EXPECT_EQ(session.GetNextFileName(), QStringLiteral("b"));
  EXPECT_EQ(session.GetNextFileName(), QStringLiteral("a"));
  EXPECT_EQ(session.GetNextFileName(), QString());
  EXPECT_EQ(session.GetFileCount(), -1);
}

TEST(SessionObject, SettersStoreTextsAsGiven) {
  FTPSessionClass session;
  session.SetLoginInfo(QStringLiteral("h"), QStringLiteral("u"), QStringLiteral("p"));
  EXPECT_EQ(session.ServerAddress, QStringLiteral("h"));
  EXPECT_EQ(session.ServerUserID, QStringLiteral("u"));
  EXPECT_EQ(session.ServerPassword, QStringLiteral("p"));
  session.SetLocalDirectoryPathName(QStringLiteral("/no/delimiter/added"));
  EXPECT_EQ(session.GetLocalDirectoryPathName(), QStringLiteral("/no/delimiter/added"));
  session.SetServerDirectoryPathName(QStringLiteral("pub"));
  EXPECT_EQ(session.GetServerDirectoryPathName(), QStringLiteral("pub"));
  session.SetTimeoutSeconds(-3);
  EXPECT_EQ(session.Timeout, -3000);
  session.SetServerEncoding(TextEncoding::UTF8());
  EXPECT_EQ(session.ServerTextEncoding, TextEncoding::UTF8());
}

TEST(SessionObject, StatusReportingCannotBeSwitchedOff) {
  FTPSessionClass session;
  const auto before = session.FTPStatusInstance;
  session.SetStatusReporting(false);
  EXPECT_EQ(session.FTPStatusInstance, before);
  session.SetStatusReporting(true);
  EXPECT_NE(session.FTPStatusInstance, before);
  EXPECT_TRUE(session.FTPStatusInstance);
}

TEST(SessionObject, InstalledReceiverFactoryIsUsedForNewReceivers) {
  auto log = std::make_shared<QStringList>();
  FTPStatusClass::SetFactory([log](FTPSessionClass* s) { return std::make_shared<RecordingStatus>(s, log); });
  FTPSessionClass session;
  FTPStatusClass::SetFactory({});
  session.FTPStatusInstance->Status_FTP(QStringLiteral("hello"));
  EXPECT_EQ(*log, QStringList{QStringLiteral("status\thello")});
}

TEST(SessionObject, SqueezeShrinksRunsOfEachListedCharacter) {
  FTPSessionClass session;
  EXPECT_EQ(session.Squeeze(QStringLiteral("a   b"), QStringLiteral(" ")), QStringLiteral("a b"));
  EXPECT_EQ(session.Squeeze(QStringLiteral("x"), QStringLiteral("x")), QStringLiteral("x"));
  EXPECT_EQ(session.Squeeze(QStringLiteral("a      b  c"), QStringLiteral(" ")), QStringLiteral("a b c"));
  EXPECT_EQ(session.Squeeze(QStringLiteral("a--__--b"), QStringLiteral("-_")), QStringLiteral("a-_-b"));
}

TEST(SessionObject, SuccessTextsAreTheFourteenAndCaseDoesNotMatter) {
  FTPSessionClass session;
  EXPECT_TRUE(session.SuccessfulMessage(QStringLiteral("Logon Complete.")));
  EXPECT_TRUE(session.SuccessfulMessage(QStringLiteral("logoff complete.")));
  EXPECT_TRUE(session.SuccessfulMessage(QStringLiteral("System information received.")));
  EXPECT_TRUE(session.SuccessfulMessage(QStringLiteral("Directory Transfer Complete.")));
  EXPECT_FALSE(session.SuccessfulMessage(QStringLiteral("Logon Complete")));
  EXPECT_FALSE(session.SuccessfulMessage(QStringLiteral("Error: The connection timed out. Ending session.")));
  EXPECT_FALSE(session.SuccessfulMessage(QString()));
}

TEST(FinalLineTest, BlankAndHyphenFormsDifferAsDocumented) {
  struct Case {
    const char* line;
    bool blank;
    bool hyphen;
  };
  const Case cases[] = {
      {"226 Done", true, true},     {"150-Opening", false, false}, {" 230 indented", false, false},
      {"226", false, true},         {"2261 text", false, true},    {"", false, true},
      {"x     ", true, true},       {"abc", false, true},          {"331 ", true, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EngineProbe::FinalLineBlankForm(QString::fromLatin1(c.line)), c.blank) << c.line;
    EXPECT_EQ(EngineProbe::FinalLineHyphenForm(QString::fromLatin1(c.line)), c.hyphen) << c.line;
  }
}

TEST(NextFTPStep, EmptyCommandSendsNothingAndShowsTheStatus) {
  FTPSessionClass session;
  auto log = RecordingStatus::Attach(session);
  session.NextFTPStep(QStringLiteral("CONNECT"), QString(), QStringLiteral("Send Logon Command"));
  EXPECT_EQ(session.CurrentFTPStep, QStringLiteral("CONNECT"));
  EXPECT_EQ(*log, (QStringList{QStringLiteral("response\t"), QStringLiteral("status\tSend Logon Command")}));
  EXPECT_EQ(session.ConnectionTimer->Mode(), 1);
}

TEST(NextFTPStep, CommandsHoldingPassAreMaskedInAnyCase) {
  FTPSessionClass session;
  auto log = RecordingStatus::Attach(session);
  session.NextFTPStep(QStringLiteral("STOR"), QStringLiteral("STOR compass.txt"), QStringLiteral("Send file"));
  session.NextFTPStep(QStringLiteral("PASS"), QStringLiteral("PASS secret"), QStringLiteral("Send Password"));
  session.NextFTPStep(QStringLiteral("USER"), QStringLiteral("USER bob"), QStringLiteral("Send UserID"));
  EXPECT_EQ(RecordingStatus::Only(*log, {QStringLiteral("response")}),
            (QStringList{QStringLiteral("response\tPASS"), QStringLiteral("response\tPASS"),
                         QStringLiteral("response\tUSER bob")}));
}

TEST(NextFTPStep, ForcenoopIsReportedUnderItsOwnName) {
  FTPSessionClass session;
  auto log = RecordingStatus::Attach(session);
  session.NextFTPStep(QStringLiteral("FILEEND"), QStringLiteral("FORCENOOP"), QStringLiteral("Get file "));
  EXPECT_EQ(*log, (QStringList{QStringLiteral("response\tFORCENOOP"), QStringLiteral("status\tGet file ")}));
}

TEST(NextFTPStep, NoopRunsTheNewStepAtOnceWithCode200AndShowsNoStatus) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = QStringLiteral("Logoff");
  session->Buffer = "stale line\r\n";
  // Logoff's machine in step "QUIT" ends the session on any final line.
  session->NextFTPStep(QStringLiteral("QUIT"), QStringLiteral("NOOP"), QStringLiteral("never shown"));
  EXPECT_EQ(*log, (QStringList{QStringLiteral("response\t200 NOOP command successful."),
                               QStringLiteral("success\tLogoff Complete.")}));
  EXPECT_TRUE(session->Buffer.isEmpty());  // what Buffer held is lost
}

TEST(EndFTPSession, ReportsByTheTextAndClosesSocketsUnlessIgnoreCancel) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->ResetConnectionTimer();
  session->CommandSocket = MakeEventSource<FTPCommandSocket>(session.get());
  session->DataSocket = MakeEventSource<FTPDataSocket>(session.get());

  session->IgnoreCancel = true;
  session->EndFTPSession(QStringLiteral("Logon Complete."));
  EXPECT_TRUE(session->CommandSocket);
  EXPECT_TRUE(session->DataSocket);
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);

  session->IgnoreCancel = false;
  session->ResetConnectionTimer();
  session->EndFTPSession(QString());  // reports nothing, still stops and closes
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);
  EXPECT_EQ(session->CommandSocket, nullptr);
  EXPECT_EQ(session->DataSocket, nullptr);

  session->EndFTPSession(QStringLiteral("Error: 104"));
  EXPECT_EQ(*log, (QStringList{QStringLiteral("success\tLogon Complete."), QStringLiteral("error\tError: 104")}));
}

TEST(SocketsActive, EachMissingPieceEndsTheSessionWithItsOwnMessage) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = QStringLiteral("Before");
  session->CurrentFTPStep = QStringLiteral("STEP");
  session->Logoff();  // a resident method on a session that never logged on
  session->IgnoreCancel = true;  // as after a Logon: ending keeps what sockets there are
  session->DataSocket = MakeEventSource<FTPDataSocket>(session.get());
  EXPECT_FALSE(session->SocketsActive());
  session->CommandSocket = MakeEventSource<FTPCommandSocket>(session.get());
  EXPECT_FALSE(session->SocketsActive());  // made but never connected
  EXPECT_EQ(*log, (QStringList{QStringLiteral("error\tData Socket is no longer active."),
                               QStringLiteral("error\tCommand Socket is no longer active."),
                               QStringLiteral("error\tConnection Lost.")}));
  EXPECT_EQ(session->FTPSessionType, QStringLiteral("Before"));
  EXPECT_EQ(session->CurrentFTPStep, QStringLiteral("STEP"));
}

TEST(ParseCommandBuffer, TakesOneLineAndReadsTheLeadingCode) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->Buffer = "331-first\r\n226\r\n\r\nabc def\r\nrest";
  session->ParseCommandBuffer();
  session->ParseCommandBuffer();
  session->ParseCommandBuffer();
  session->ParseCommandBuffer();
  // No machine runs for an empty session type: the lines are consumed and shown.
  EXPECT_EQ(*log, (QStringList{QStringLiteral("response\t331-first"), QStringLiteral("response\t226"),
                               QStringLiteral("response\t"), QStringLiteral("response\tabc def")}));
  EXPECT_EQ(session->Buffer, QByteArray("rest"));
}

TEST(ParseCommandBuffer, CodesReachTheMachineAsTheLeadingNumber) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = QStringLiteral("logon");  // dispatch ignores case
  session->CurrentFTPStep = QStringLiteral("CONNECT");
  session->Buffer = "220-Welcome\r\n 220 continued\r\nfree text line\r\n";
  session->ParseCommandBuffer();  // hyphen: not final
  session->ParseCommandBuffer();  // starts with a blank: not final
  EXPECT_EQ(session->CurrentFTPStep, QStringLiteral("CONNECT"));
  session->ParseCommandBuffer();  // final under the hyphen form, with code 0
  const QStringList ends = RecordingStatus::Only(*log, {QStringLiteral("error"), QStringLiteral("success")});
  EXPECT_EQ(ends, QStringList{QStringLiteral("error\tError: free text line\n")});
}

TEST(ParseCommandBuffer, IntegerFormDispatchesAMadeUpLineAndLeavesTheBuffer) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = QStringLiteral("Logon");
  session->CurrentFTPStep = QStringLiteral("CONNECT");
  session->Buffer = "kept\r\n";
  session->ParseCommandBuffer(500);
  EXPECT_EQ(session->Buffer, QByteArray("kept\r\n"));
  EXPECT_EQ(*log, QStringList{QStringLiteral("error\tError: x     \nkept\r\n")});
}

TEST(ParseCommandBuffer, TextIsReadInTheServerEncoding) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->Buffer = "257 \"/caf\xc3\xa9\"\r\n";
  session->ParseCommandBuffer();
  session->SetServerEncoding(TextEncoding::UTF8());
  session->Buffer = "257 \"/caf\xc3\xa9\"\r\n";
  session->ParseCommandBuffer();
  EXPECT_EQ(*log, (QStringList{QStringLiteral("response\t257 \"/caf\u00c3\u00a9\""),
                               QStringLiteral("response\t257 \"/caf\u00e9\"")}));
}

TEST(LogonMachine, UnknownStepsDoNothingButLogoffEndsOnThem) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = QStringLiteral("Logon");
  session->CurrentFTPStep = QStringLiteral("NOWHERE");
  session->Buffer = "200 fine\r\n";
  session->ParseCommandBuffer();
  EXPECT_EQ(RecordingStatus::Only(*log, {QStringLiteral("error")}), QStringList());
  session->FTPSessionType = QStringLiteral("Logoff");
  session->Buffer = "200 fine\r\n";
  session->ParseCommandBuffer();
  EXPECT_EQ(RecordingStatus::Only(*log, {QStringLiteral("error")}),
            QStringList{QStringLiteral("error\tUnknown error during (NOWHERE).")});
}

TEST(LogonMachine, UserAndPassStepsAcceptOnlyTheirCodes) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = QStringLiteral("Logon");
  session->CurrentFTPStep = QStringLiteral("USER");
  session->ParseCommandBuffer(230);  // logged on without a password: refused by Logon
  EXPECT_EQ(RecordingStatus::Only(*log, {QStringLiteral("error")}),
            QStringList{QStringLiteral("error\tError: x     \n")});
  session->ParseCommandBuffer(331);
  EXPECT_EQ(session->CurrentFTPStep, QStringLiteral("PASS"));
  session->ParseCommandBuffer(230);
  EXPECT_EQ(RecordingStatus::Only(*log, {QStringLiteral("success")}),
            QStringList{QStringLiteral("success\tLogon Complete.")});
  EXPECT_EQ(session->CurrentFTPStep, QStringLiteral("PASS"));
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);  // an idle logged-on session never times out
}

TEST(ConnectionTimer, RunsOutWithTheTimeoutMessage) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->Timeout = 50;
  session->ResetConnectionTimer();
  session->SetTimeoutSeconds(100);  // applies from the next reset only
  EXPECT_EQ(session->ConnectionTimer->Period(), 50);
  ASSERT_TRUE(RunUntil([&] { return !log->isEmpty(); }, 5000));
  EXPECT_EQ(*log, QStringList{QStringLiteral("error\tError: The connection timed out. Ending session.")});
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);
}

TEST(ConnectionTimer, EachResetStartsTheCountdownAfresh) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->Timeout = 300;
  session->ResetConnectionTimer();
  // Lines keep arriving more often than the timeout: the session stays alive.
  for (int i = 0; i < 8; ++i) {
    RunFor(100);
    session->Buffer = "200 alive\r\n";
    session->ParseCommandBuffer();
  }
  EXPECT_EQ(RecordingStatus::Only(*log, {QStringLiteral("error")}), QStringList());
  ASSERT_TRUE(RunUntil([&] { return !RecordingStatus::Only(*log, {QStringLiteral("error")}).isEmpty(); }, 5000));
}

TEST(Lifetime, AReleasedIdleSessionIsFreedAtOnce) {
  std::weak_ptr<FTPSessionClass> watch;
  {
    auto session = std::make_shared<FTPSessionClass>();
    session->ResetConnectionTimer();
    watch = session;
  }
  EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace velmar::test
