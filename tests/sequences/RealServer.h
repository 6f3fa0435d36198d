#pragma once
// A session against a real server (pyftpdlib or vsftpd, passive or active mode) on loopback,
// and snapshots of folders to compare the file systems of both sides byte for byte.
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QCryptographicHash>
#include <QDirIterator>
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

class RealTransfer : public ::testing::TestWithParam<std::tuple<Kind, bool>> {
protected:
  void SetUp() override {
    server = std::make_unique<RealFtpServer>(std::get<0>(GetParam()));
    if (!server->Started()) GTEST_SKIP() << server->SkipReason().toStdString();
    ASSERT_TRUE(local.isValid());
    session->SetLoginInfo("127.0.0.1", server->User(), server->Password());
    session->CommandPort = server->Port();
    session->SetServerEncoding(TextEncoding::UTF8());  // names with non-ASCII letters
    session->PassiveMode = !Active();
    session->SetDataPortRange(32401, 32700);
    session->SetLocalDirectoryPathName(local.path() + "/");
  }
  bool Active() const { return std::get<1>(GetParam()); }
  bool Vsftpd() const { return std::get<0>(GetParam()) == Kind::Vsftpd; }
  // Runs one operation and returns its end report ("" when none came in time).
  QString Run(void (S::*operation)(), int timeoutMs = 60000) {
    const qsizetype before = RecordingStatus::Ends(*log).size();
    ((*session).*operation)();
    RunUntil([&] { return RecordingStatus::Ends(*log).size() > before; }, timeoutMs);
    return RecordingStatus::Ends(*log).value(before);
  }
  std::string Log() const { return log->join('\n').toStdString(); }

  std::unique_ptr<RealFtpServer> server;
  QTemporaryDir local;
  std::shared_ptr<S> session = std::make_shared<S>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);
};

}  // namespace velmar::test
