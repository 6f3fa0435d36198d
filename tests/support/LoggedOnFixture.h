#pragma once
// A session logged on to the scripted server, with its reports recorded: the starting
// point of every test of an operation on a logged-on session.
#include "session/FTPSessionClass.h"
#include "support/RecordingStatus.h"
#include "support/ScriptedFtpServer.h"
#include "support/TestEventLoop.h"

#include <QTemporaryDir>
#include <memory>

#include <gtest/gtest.h>

namespace velmar::test {

struct LoggedOnFixture : ::testing::Test {
  ScriptedFtpServer server;
  QTemporaryDir local;
  std::shared_ptr<FTPSessionClass> session = std::make_shared<FTPSessionClass>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);

  void SetUp() override {
    ASSERT_TRUE(local.isValid());
    session->SetLoginInfo("127.0.0.1", "u", "p");
    session->CommandPort = server.Port();
    session->SetLocalDirectoryPathName(local.path() + "/");
  }
  // Scripts the logon; and runs it.
  ScriptedFtpServer& ScriptLogOn() {
    return server.OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line("230 in")});
  }
  void LogOn() {
    ScriptLogOn();
    session->Logon();
    ASSERT_TRUE(RunUntil([&] { return RecordingStatus::Ends(*log).size() == 1; }));
    ASSERT_EQ(RecordingStatus::Ends(*log).first(), "success\tLogon Complete.");
  }
  bool WaitForEnds(int count, int timeoutMs = 10000) {
    return RunUntil([&] { return RecordingStatus::Ends(*log).size() >= count; }, timeoutMs);
  }
};

}  // namespace velmar::test
