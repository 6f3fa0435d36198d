// Reply lines on the control connection, as the command socket hands them over: the bytes
// are appended to Buffer and ParseCommandBuffer() runs while Buffer holds a CR LF.
//
// Input: byte 0 picks the session type, byte 1 the step, byte 2 the switches; the rest is
// what the server sent. The session has no sockets, as after EndFTPSession (an error branch
// leaves the lines behind it in Buffer, and the command socket's loop dispatches them to the
// ended session all the same). A machine that then uses a socket meets the framework's nil
// object error (Deref), and a read past a work list its out-of-bounds error; both are stopped
// and reported at the event boundary. Anything else is a finding.
#include "fuzz/FuzzTarget.h"

#include "listing/FTPDirectoryClass.h"
#include "platform/Exceptions.h"
#include "platform/MsgBox.h"
#include "session/FTPSessionClass.h"

#include <cstdio>
#include <cstdlib>

namespace velmar::fuzz {

namespace {

// The session types of the reply dispatch.
const char* const kTypes[] = {
    "AbortTransfer", "ChangeDir",     "ParentDir",          "PutDir",           "PutDirImmediate",
    "PutFile",       "PutSingleFile", "RestartPutSingleFile", "GetDirList",     "GetDirListImmediate",
    "GetFile",       "GetSingleFile", "RestartGetSingleFile", "GetDir",         "GetDirImmediate",
    "DeleteFile",    "DeleteSingleFile", "DeleteDir",       "DeleteDirImmediate", "RemoveDir",
    "MakeDir",       "RenameFile",    "RenameSingleFile",   "ChmodSingleFile",  "GetWorkingDir",
    "Logon",         "Logoff",        "GetSystemInfo",      "GetStatus",        "SITECommand",
    "DirectCommand",
};

// Every step name the machines know, and two they do not.
const char* const kSteps[] = {
    "CONNECT", "AUTH",     "PBSZ",       "PROT",         "USER",        "PASS",          "CWD",
    "SERVERDIR", "MAKETOPDIR", "TYPE",   "LOOP",         "PASV",        "NOTPASV",       "PORT",
    "NEXTPASV", "NEXTNOTPASV", "NEXTPORT", "NEXTSUBPASV", "NEXTSUBNOTPASV", "NEXTSUBPORT", "SENDFILE",
    "STOR",    "RETR",     "REST",       "SIZE",         "ABORT",       "LIST",          "LISTEND",
    "PWD",     "PARENTPWD", "GETFILE",   "GETFILES",     "GETFILELOOP", "FILEEND",       "NEXT",
    "NEXTTYPE", "NEXTSUBDIR", "PARENT",  "UPDIR",        "USERDIR",     "MAKEDIR",       "MKD",
    "RMD",     "DELE",     "DELETE",     "DELETEFILE",   "DELETEFILELOOP", "REMOVESUBDIR", "REMOVETOPDIR",
    "CDUP",    "FROM",     "TO",         "START",        "STATUS",      "SYSTEM",        "DONE",
    "QUIT",    "",         "NOSUCHSTEP",
};

// A local folder that cannot exist: nothing is created, walked or deleted on this machine.
const QString kLocal = QStringLiteral("/proc/velmar-fuzz/");

void Prepare(FTPSessionClass& session, std::uint8_t type, std::uint8_t step, std::uint8_t switches) {
  session.FTPSessionType = QString::fromLatin1(kTypes[type % std::size(kTypes)]);
  session.CurrentFTPStep = QString::fromLatin1(kSteps[step % std::size(kSteps)]);
  session.PassiveMode = switches & 1;
  session.FTPS = switches & 2;
  session.IgnoreCancel = switches & 4;
  session.NT = switches & 8;
  if (switches & 16) session.SetServerEncoding(TextEncoding::UTF8());
  session.UseNameList = switches & 32;
  session.SetLoginInfo(QStringLiteral("127.0.0.1"), QStringLiteral("user"), QStringLiteral("secret"));
  session.ServerDirectory = QStringLiteral("/srv/top");
  session.LocalDirectory = kLocal;
  // An upload script as GetFiles writes it: a folder, its file, the way up, a file.
  session.Files = {QStringLiteral("*sub"), QStringLiteral("a.txt"), QStringLiteral("*UP"), QStringLiteral("b.txt")};
  session.Paths = {QStringLiteral("Ignore"), kLocal + QStringLiteral("sub/a.txt"), QStringLiteral("Ignore"),
                   kLocal + QStringLiteral("b.txt")};
  session.CurrentFileIndex = 1;
  session.FileCount = session.GetFileCount();
  // A tree walk standing in its top directory.
  session.DeleteDirectory = session.CurrentWorkingDirectory = session.ServerDirectory;
  session.DirList.append(std::make_shared<FTPDirectoryClass>(session.ServerDirectory, QString()));
  session.DirList[0]->AddFile(QStringLiteral("c.txt"));
  session.DirList[0]->AddSubDirectory(session.ServerDirectory + QStringLiteral("/deeper"));
  session.CurrentDirectoryIndex = 0;
  session.ChmodMask = QStringLiteral("644");
  session.DirectCommandText = QStringLiteral("HELP");
}

}  // namespace

void Reply(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return;
  EnsureApplication();
  // The walks' "oops" boxes would only fill the log.
  static const bool quiet = (SetMsgBoxHook([](const QString&) {}), true);
  (void)quiet;
  {
    auto session = std::make_shared<FTPSessionClass>();
    Prepare(*session, data[0], data[1], data[2]);
    session->Buffer.append(reinterpret_cast<const char*>(data + 3), static_cast<qsizetype>(size - 3));
    // Every round takes at least one line end out of Buffer: more rounds than bytes means a
    // step keeps filling it.
    try {
      for (std::size_t round = 0; session->Buffer.contains("\r\n"); ++round) {
        if (round > size) {
          std::fprintf(stderr, "reply fuzz: Buffer is never emptied\n");
          std::abort();
        }
        session->ParseCommandBuffer();
      }
    } catch (const NilObjectException&) {
    } catch (const OutOfBoundsException&) {
    }
  }
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace velmar::fuzz

VELMAR_FUZZ_ENTRY(Reply)
