#pragma once
// Sessions against real servers on loopback (started by the test, which is skipped when the
// server cannot start), and snapshots of folders to compare both sides byte for byte.
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace velmar::test {

using S = FTPSessionClass;
using Kind = RealFtpServer::Kind;

inline QString Entry(const QString& path, const QByteArray& bytes) {
  return path + " " + QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex();
}
// Every folder ("path/") and file ("path md5") below root, sorted.
inline QStringList Snapshot(const QString& root) {
  QStringList entries;
  QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
  while (it.hasNext()) {
    const QString path = it.next(), relative = QDir(root).relativeFilePath(path);
    entries << (it.fileInfo().isDir() ? relative + "/" : Entry(relative, ReadFile(path)));
  }
  entries.sort();
  return entries;
}

inline const QString kFilesDone = "success\tFile Transfer Complete.", kLoggedOn = "success\tLogon Complete.";

// A session pointed at a fresh server of the test's kind, with its data ports in a range of
// the fixture's own (the fixtures run side by side).
template <typename Param>
class RealServerTest : public ::testing::TestWithParam<Param> {
protected:
  void Start(Kind kind, int firstDataPort, int lastDataPort) {
    server = std::make_unique<RealFtpServer>(kind);
    if (!server->Started()) GTEST_SKIP() << server->SkipReason().toStdString();
    ASSERT_TRUE(local.isValid());
    session->SetLoginInfo("127.0.0.1", server->User(), server->Password());
    session->CommandPort = server->Port();
    session->SetLocalDirectoryPathName(local.path() + "/");
    session->SetDataPortRange(firstDataPort, lastDataPort);
  }
  // Runs an operation and returns its end report ("" when none came in time).
  QString Run(const std::function<void(S&)>& operation, int timeoutMs = 60000) {
    const qsizetype before = RecordingStatus::Ends(*log).size();
    operation(*session);
    RunUntil([&] { return RecordingStatus::Ends(*log).size() > before; }, timeoutMs);
    return RecordingStatus::Ends(*log).value(before);
  }
  QString OnServer(const QString& relative) const { return server->Root() + "/" + relative; }
  std::string Log() const { return log->join('\n').toStdString(); }

  std::unique_ptr<RealFtpServer> server;
  QTemporaryDir local;
  std::shared_ptr<S> session = std::make_shared<S>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);
};

// Logged on in SetUp: the password in no report, over TLS after AUTH, PBSZ and PROT for the TLS server.
class RealSession : public RealServerTest<Kind> {
protected:
  void SetUp() override {
    Start(GetParam(), 32701, 32767);
    if (IsSkipped() || HasFatalFailure()) return;
    session->FTPS = GetParam() == Kind::PyftpdlibTLS;
    ASSERT_EQ(Run(&S::Logon), kLoggedOn) << Log();
    EXPECT_EQ(session->CommandSocket->SSLConnected(), session->FTPS);
    EXPECT_TRUE(log->contains("response\tPASS"));
    for (const QString& entry : *log) EXPECT_FALSE(entry.contains(server->Password())) << entry.toStdString();
    const QStringList tls = log->filter(QRegularExpression("^status\t\"?Sending (AUTH|PBSZ|PROT)"));
    EXPECT_EQ(tls.join('|'), session->FTPS ? "status\t\"Sending AUTH\"|status\tSending PBSZ|status\tSending PROT" : "");
  }
  // Runs an operation after storing a server path and adding names to Files.
  QString Run(const std::function<void(S&)>& operation, const QString& path = {}, const QStringList& names = {}) {
    if (!path.isNull()) session->SetServerDirectoryPathName(path);
    for (const QString& name : names) session->AddFileName(name);
    return RealServerTest::Run(operation, 20000);
  }
};

inline std::string ServerName(const ::testing::TestParamInfo<Kind>& info) {
  const char* const names[] = {"pyftpdlib", "pyftpdlib_tls", "vsftpd", "pyftpdlib_tls_data", "vsftpd_tls_data"};  // Kind's order
  return names[static_cast<int>(info.param)];
}
inline std::string TransferName(const ::testing::TestParamInfo<std::tuple<Kind, bool>>& info) {
  return ServerName({std::get<0>(info.param), info.index}) + (std::get<1>(info.param) ? "_active" : "_passive");
}

// Not logged on; names in UTF-8, in passive or (the parameter's second half) active mode. The
// servers that demand TLS on data connections get it, with their certificate verified.
class RealTransfer : public RealServerTest<std::tuple<Kind, bool>> {
protected:
  void SetUp() override {
    Start(ServerKind(), 32401, 32700);
    if (IsSkipped() || HasFatalFailure()) return;
    session->SetServerEncoding(TextEncoding::UTF8());  // names with non-ASCII letters
    session->PassiveMode = !Active();
    if (!Tls()) return;
    session->ServerAddress = "localhost";  // the certificate's name
    session->FTPS = session->SecureDataConnection = session->VerifyServerCertificate = true;
    session->TrustedCertificateFile = server->CertificateFile();
  }
  bool Active() const { return std::get<1>(GetParam()); }
  bool Vsftpd() const { return ServerKind() == Kind::Vsftpd || ServerKind() == Kind::VsftpdTLSData; }
  bool Tls() const { return ServerKind() == Kind::PyftpdlibTLSData || ServerKind() == Kind::VsftpdTLSData; }
  Kind ServerKind() const { return std::get<0>(GetParam()); }
};

}  // namespace velmar::test
