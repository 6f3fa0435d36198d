#pragma once
// A session logged on to a real server on loopback (skipped when it cannot start): the logon
// succeeds with the password in no report, over TLS after AUTH, PBSZ and PROT for the TLS server.
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"

#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {

class RealSession : public ::testing::TestWithParam<RealFtpServer::Kind> {
protected:
  using S = FTPSessionClass;
  void SetUp() override {
    server = std::make_unique<RealFtpServer>(GetParam());
    if (!server->Started()) GTEST_SKIP() << server->SkipReason().toStdString();
    ASSERT_TRUE(local.isValid());
    session->SetLoginInfo("127.0.0.1", server->User(), server->Password());
    session->CommandPort = server->Port();
    session->SetLocalDirectoryPathName(local.path() + "/");
    session->SetDataPortRange(32701, 32767);
    session->FTPS = GetParam() == RealFtpServer::Kind::PyftpdlibTLS;
    ASSERT_EQ(Run(&S::Logon), "success\tLogon Complete.") << log->join('\n').toStdString();
    EXPECT_EQ(session->CommandSocket->SSLConnected(), session->FTPS);
    EXPECT_TRUE(log->contains("response\tPASS"));
    for (const QString& entry : *log) EXPECT_FALSE(entry.contains(server->Password())) << entry.toStdString();
    const QStringList tls = log->filter(QRegularExpression("^status\t\"?Sending (AUTH|PBSZ|PROT)"));
    EXPECT_EQ(tls.join('|'), session->FTPS ? "status\t\"Sending AUTH\"|status\tSending PBSZ|status\tSending PROT" : "");
  }

  // Runs an operation, after storing a server path or adding names to Files: its end report.
  QString Run(const std::function<void(S&)>& operation, const QString& path = {}, const QStringList& names = {}) {
    const qsizetype before = RecordingStatus::Ends(*log).size();
    if (!path.isNull()) session->SetServerDirectoryPathName(path);
    for (const QString& name : names) session->AddFileName(name);
    operation(*session);
    RunUntil([&] { return RecordingStatus::Ends(*log).size() > before; }, 20000);
    return RecordingStatus::Ends(*log).value(before);  // "" when none came in time
  }
  QString OnServer(const QString& relative) const { return server->Root() + "/" + relative; }

  std::unique_ptr<RealFtpServer> server;
  QTemporaryDir local;
  std::shared_ptr<S> session = std::make_shared<S>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);
};

inline std::string ServerName(const ::testing::TestParamInfo<RealFtpServer::Kind>& info) {
  const char* const names[] = {"pyftpdlib", "pyftpdlib_tls", "vsftpd", "pyftpdlib_tls_data", "vsftpd_tls_data"};  // Kind's order
  return names[static_cast<int>(info.param)];
}

}  // namespace velmar::test
