#pragma once
// Real FTP servers for integration tests, started by the test on a free loopback port and
// stopped by the destructor: pyftpdlib (plain or explicit TLS) and vsftpd (plain, or explicit
// TLS that it demands on data connections, resuming the control connection's session).
#include <QString>
#include <memory>

namespace velmar::test {

class RealFtpServer {
public:
  // The TLS kinds offer AUTH TLS and still take plain logins; the ...TLSData kinds refuse data
  // connections without TLS.
  enum class Kind { Pyftpdlib, PyftpdlibTLS, Vsftpd, PyftpdlibTLSData, VsftpdTLSData };

  // Starts the server with one user (User(), Password()) whose home is a fresh temporary
  // folder (Root()). Check Started(); when false, SkipReason() says why in one line. A TLS
  // server has a fresh self-signed certificate for `certificateName`.
  explicit RealFtpServer(Kind kind, const QString& certificateName = QStringLiteral("localhost"));
  ~RealFtpServer();

  bool Started() const;
  QString SkipReason() const;
  quint16 Port() const;
  QString User() const;
  QString Password() const;
  // Local path of the user's home folder on the server, ending without "/". For vsftpd it
  // is owned by the server's system user: a folder a test makes in it as root is not
  // writable over FTP unless the test hands it to User().
  QString Root() const;
  // The PEM file of a TLS server's certificate (with its key), to trust it; empty for the others.
  QString CertificateFile() const;
  // Hands what a test made under Root() to the server's user, so that it can be changed over
  // FTP (vsftpd); false with the tool's complaint in the log when that fails.
  bool HandOverRoot() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmar::test
