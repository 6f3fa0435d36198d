#pragma once
// Real FTP servers for integration tests, started by the test on a free loopback port and
// stopped by the destructor: pyftpdlib (plain or explicit TLS) and vsftpd.
#include <QString>
#include <memory>

namespace velmar::test {

class RealFtpServer {
public:
  enum class Kind { Pyftpdlib, PyftpdlibTLS, Vsftpd };

  // Starts the server with one user (User(), Password()) whose home is a fresh temporary
  // folder (Root()). Check Started(); when false, SkipReason() says why in one line.
  explicit RealFtpServer(Kind kind);
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
  // Hands what a test made under Root() to the server's user, so that it can be changed over
  // FTP (vsftpd); false with the tool's complaint in the log when that fails.
  bool HandOverRoot() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmar::test
