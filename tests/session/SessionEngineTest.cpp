// The session object and its step engine, driven directly: no network.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using S = FTPSessionClass;

struct EngineProbe : FTPSessionClass {  // the shared final-line rules, for direct tests
  using FTPSessionClass::FinalLineBlankForm, FTPSessionClass::FinalLineHyphenForm;
};

TEST(SessionObject, ConstructorsSetTheDocumentedDefaults) {
  FTPSessionClass s;
  EXPECT_EQ((QList<qint64>{s.DataPortStart, s.DataPortEnd, s.CommandPort, s.Timeout, s.SendBufferSize, s.GetFileCount(),
                           s.ConnectionTimer->Mode()}),
            (QList<qint64>{30003, 30100, 21, 20000, 2048, -1, 0}));  // the timer is off until the first step
  EXPECT_TRUE(s.DataPort >= 30003 && s.DataPort < 30100) << s.DataPort;
  EXPECT_EQ((QList<bool>{s.PassiveMode, s.ShowInvisible, s.UseNameList, s.FTPS, s.IgnoreCancel}),
            (QList<bool>{true, false, false, false, false}));
  EXPECT_EQ((QStringList{s.ServerTextEncoding.Name(), s.FTPTransferType, s.VelmarCRLF, s.FileDelimiter,
                         s.GetVelmarVersion(), s.ID}),
            (QStringList{"ISO-8859-1", "I", "\r\n", "/", "5.0.0", ""}));
  EXPECT_TRUE(s.FTPStatusInstance && s.FTPStatusInstance->Session == &s);
  EXPECT_TRUE(!s.DataSocket && !s.CommandSocket && s.Files.isEmpty());
  EXPECT_GT(s.SessionStartTime, 0);
  EXPECT_EQ(FTPSessionClass("7").ID, "7");
  QSet<qint32> seen;  // data ports are drawn across the range: a fixed port would give 1
  for (int i = 0; i < 200; ++i) seen.insert(FTPSessionClass().DataPort);
  EXPECT_GT(seen.size(), 20);
}

TEST(SessionObject, StatusReportingCannotBeSwitchedOffAndUsesTheInstalledFactory) {
  auto log = std::make_shared<QStringList>();
  FTPStatusClass::SetFactory([log](FTPSessionClass* s) { return std::make_shared<RecordingStatus>(s, log); });
  FTPSessionClass session;
  FTPStatusClass::SetFactory({});
  const auto made = session.FTPStatusInstance;
  session.SetStatusReporting(false);
  EXPECT_EQ(session.FTPStatusInstance, made);
  session.SetStatusReporting(true);
  EXPECT_TRUE(session.FTPStatusInstance && session.FTPStatusInstance != made);
  made->Status_FTP("hello");
  EXPECT_EQ(*log, QStringList{"status\thello"});
}

TEST(SessionObject, SqueezeAndTheSuccessTexts) {
  FTPSessionClass s;
  EXPECT_EQ((QStringList{s.Squeeze("a   b", " "), s.Squeeze("x", "x"), s.Squeeze("a      b  c", " "),
                         s.Squeeze("a--__--b", "-_")}),
            (QStringList{"a b", "x", "a b c", "a-_-b"}));
  // The fourteen texts, whatever their case, and nothing else.
  for (const char* text : {"Logon Complete.", "logoff complete.", "System information received.",
                           "Directory Transfer Complete."})
    EXPECT_TRUE(s.SuccessfulMessage(text)) << text;
  for (const char* text : {"Logon Complete", "Error: The connection timed out. Ending session.", ""})
    EXPECT_FALSE(s.SuccessfulMessage(text)) << text;
}

TEST(FinalLineTest, BlankAndHyphenFormsDifferAsDocumented) {
  const std::tuple<const char*, bool, bool> cases[] = {  // line, blank form, hyphen form
      {"226 Done", true, true}, {"150-Opening", false, false}, {" 230 indented", false, false},
      {"226", false, true},     {"2261 text", false, true},    {"", false, true},
      {"x     ", true, true},   {"abc", false, true},          {"331 ", true, true}};
  for (const auto& [line, blank, hyphen] : cases) {
    EXPECT_EQ(EngineProbe::FinalLineBlankForm(QString::fromLatin1(line)), blank) << line;
    EXPECT_EQ(EngineProbe::FinalLineHyphenForm(QString::fromLatin1(line)), hyphen) << line;
  }
}

// A session with a given type, step and buffer, driven by a call of the engine: the whole
// report stream, and the rest of the buffer, the step, the type and the timer after it.
struct EngineRow {
  const char *name, *type, *step;
  QByteArray buffer;
  std::function<void(S&)> act;
  QStringList log;
  int timerMode = 1;
  QByteArray rest = {};
  const char* stepAfter = nullptr;  // the step when it differs from `step`
};
void PrintTo(const EngineRow& row, std::ostream* out) { *out << row.name; }

// Feeds replies: 0 is ParseCommandBuffer() on the buffer, a code is ParseCommandBuffer(code).
auto Feed(QList<int> feed, bool utf8 = false) {
  return [=](S& s) {
    if (utf8) s.SetServerEncoding(TextEncoding::UTF8());
    for (int code : feed) code ? s.ParseCommandBuffer(code) : s.ParseCommandBuffer();
  };
}
auto Step(const char* step, const char* command, const char* status) {
  return [=](S& s) { s.NextFTPStep(step, command, status); };
}

const EngineRow kRows[] = {
    // NextFTPStep masks any command holding "pass", in any case.
    {"CommandsHoldingPassAreMasked", "", "STOR", "", Step("STOR", "STOR compass.txt", "Send file"),
     {"response\tPASS", "status\tSend file"}},
    // NOOP runs the new step at once with code 200 (Logoff's QUIT ends on any line), no status; Buffer is lost.
    {"NoopRunsTheNewStepAtOnce", "Logoff", "", "stale line\r\n", Step("QUIT", "NOOP", "never shown"),
     {"response\t200 NOOP command successful.", "success\tLogoff Complete."}, 0, {}, "QUIT"},
    // A resident method on a session that never logged on, then each missing piece; the type
    // and the step stay. Ending keeps what sockets there are, as after a Logon.
    {"SocketsActiveNamesEachMissingPiece", "Before", "STEP", "",
     [](S& s) {
       s.Logoff();
       s.IgnoreCancel = true;
       s.DataSocket = MakeEventSource<FTPDataSocket>(&s);
       EXPECT_FALSE(s.SocketsActive());
       s.CommandSocket = MakeEventSource<FTPCommandSocket>(&s);
       EXPECT_FALSE(s.SocketsActive());  // made but never connected
     },
     {"error\tData Socket is no longer active.", "error\tCommand Socket is no longer active.",
      "error\tConnection Lost."}, 0},

    {"EndFTPSessionReportsByTheTextAndClosesSocketsUnlessIgnoreCancel", "", "", "",
     [](S& s) {
       s.CommandSocket = MakeEventSource<FTPCommandSocket>(&s);
       s.DataSocket = MakeEventSource<FTPDataSocket>(&s);
       s.IgnoreCancel = true;
       s.EndFTPSession("Logon Complete.");
       EXPECT_TRUE(s.CommandSocket && s.DataSocket);
       s.IgnoreCancel = false;
       s.ResetConnectionTimer();
       s.EndFTPSession(QString());  // reports nothing, still stops and closes
       EXPECT_TRUE(!s.CommandSocket && !s.DataSocket);
       s.EndFTPSession("Error: 104");
     },
     {"success\tLogon Complete.", "error\tError: 104"}, 0},
    // Lines that arrive more often than the timeout keep the session alive; then it runs out.
    {"EachResetStartsTheCountdownAfresh", "", "", "",
     [](S& s) {
       s.Timeout = 300;
       s.ResetConnectionTimer();
       EXPECT_EQ(s.ConnectionTimer->Period(), 300);
       for (int i = 0; i < 8; ++i) {
         RunFor(100);
         s.Buffer = "200 alive\r\n";
         s.ParseCommandBuffer();
       }
       ASSERT_TRUE(RunUntil([&] { return s.ConnectionTimer->Mode() == 0; }, 5000));
     },
     QStringList(8, "response\t200 alive") << "error\tError: The connection timed out. Ending session.", 0},

    // ParseCommandBuffer. No machine runs for an empty session type: the lines are consumed and shown.
    {"LinesAreTakenOneAtATime", "", "", "331-first\r\n226\r\n\r\nabc def\r\nrest", Feed({0, 0, 0, 0}),
     {"response\t331-first", "response\t226", "response\t", "response\tabc def"}, 1, "rest"},
    {"TextIsLatin1ByDefault", "", "", "257 \"/caf\xc3\xa9\"\r\n", Feed({0}), {"response\t257 \"/caf\u00c3\u00a9\""}},
    {"TextInTheServerEncoding", "", "", "257 \"/caf\xc3\xa9\"\r\n", Feed({0}, true), {"response\t257 \"/caf\u00e9\""}},
    // Hyphen, then a leading blank: not final. A free text line is final under the hyphen
    // form, with code 0. Dispatch ignores the case of the type.
    {"CodesAreTheLeadingNumber", "logon", "CONNECT", "220-Welcome\r\n 220 more\r\nfree text\r\n", Feed({0, 0, 0}),
     {"response\t220-Welcome", "response\t 220 more", "response\tfree text", "error\tError: free text\n"}, 0},
    {"IntegerFormDispatchesAMadeUpLineAndLeavesTheBuffer", "Logon", "CONNECT", "kept\r\n", Feed({500}),
     {"error\tError: x     \nkept\r\n"}, 0, "kept\r\n"},
    // Logon refuses 230 after USER; an idle logged-on session never times out.
    {"LogonUserAndPassStepsAcceptOnlyTheirCodes", "Logon", "USER", "", Feed({230, 331, 230}),
     {"error\tError: x     \n", "response\tPASS", "status\tSend Password", "success\tLogon Complete."}, 0, {}, "PASS"},
    {"LogonIgnoresAnUnknownStep", "Logon", "NOWHERE", "200 fine\r\n", Feed({0}), {"response\t200 fine"}},
    {"LogoffEndsOnAnUnknownStep", "Logoff", "NOWHERE", "200 fine\r\n", Feed({0}),
     {"response\t200 fine", "error\tUnknown error during (NOWHERE)."}, 0},
};

class Engine : public ::testing::TestWithParam<EngineRow> {};

TEST_P(Engine, ReportsAndState) {
  const EngineRow& row = GetParam();
  auto session = std::make_shared<S>();
  auto log = RecordingStatus::Attach(*session);
  session->FTPSessionType = row.type;
  session->CurrentFTPStep = row.step;
  session->Buffer = row.buffer;
  row.act(*session);
  EXPECT_EQ(*log, row.log);
  EXPECT_EQ(session->Buffer, row.rest);
  EXPECT_EQ(session->FTPSessionType, row.type);
  EXPECT_EQ(session->CurrentFTPStep, row.stepAfter ? row.stepAfter : row.step);
  EXPECT_EQ(session->ConnectionTimer->Mode(), row.timerMode);
}

INSTANTIATE_TEST_SUITE_P(Rows, Engine, ::testing::ValuesIn(kRows), [](const auto& info) { return info.param.name; });

TEST(Lifetime, AReleasedIdleSessionIsFreedAtOnce) {
  auto session = std::make_shared<FTPSessionClass>();
  session->ResetConnectionTimer();
  const std::weak_ptr<FTPSessionClass> watch = session;
  const std::shared_ptr<FTPStatusClass> receiver = session->FTPStatusInstance;  // kept by its owner
  session.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(receiver->Session, nullptr);  // no way back into the freed session
}

}  // namespace
}  // namespace velmar::test
