#pragma once
// One FTP client session: one control connection, one data connection object, one
// inactivity timer, one status receiver, and the settings and work lists of exactly one
// running operation. Every operation is a step machine over string steps, advanced by
// reply lines (ParseCommandBuffer) and by events of the data socket. Nothing blocks.
#include "platform/TextEncoding.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <initializer_list>
#include <memory>

namespace velmar {

class FTPCommandSocket;
class FTPConnectionTimer;
class FTPDataSocket;
class FTPDirectoryClass;
class FTPParsedDirListLineClass;
class FTPStatusClass;
class FolderItem;
class SSLSocket;

class FTPSessionClass : public std::enable_shared_from_this<FTPSessionClass> {
public:
  // Fields, in declared order.
  QString ServerAddress;
  QString ServerUserID;
  QString ServerPassword;
  QString ServerDirectory;
  QString LocalDirectory;
  QStringList Files;
  // Bytes received on the control connection and not yet split into lines; they are
  // read as text of ServerTextEncoding line by line.
  QByteArray Buffer;
  qint32 SendBufferSize = 0;
  qint32 BytesReceived = 0;
  qint32 CurrentDirectoryIndex = 0;
  qint32 CurrentFileIndex = 0;
  QString DirectoryFileList;
  QList<std::shared_ptr<FTPDirectoryClass>> DirList;
  bool NT = false;
  QStringList Paths;
  qint32 DataPortStart = 0;
  qint32 DataPortEnd = 0;
  qint32 DataPort = 0;
  qint32 Timeout = 0;
  bool UseNameList = false;
  QString ChmodMask;
  TextEncoding ServerTextEncoding;
  bool ShowInvisible = false;
  qint32 CommandPort = 0;
  qint32 PassivePort = 0;
  bool IgnoreCancel = false;
  QString VelmarCRLF;
  std::shared_ptr<FTPStatusClass> FTPStatusInstance;
  QString FTPSessionType;
  QString FileDelimiter;
  qint32 FileCount = 0;
  QString DeleteDirectory;
  std::shared_ptr<FTPDataSocket> DataSocket;
  QString CurrentWorkingDirectory;
  QString CurrentFTPStep;
  std::shared_ptr<FTPConnectionTimer> ConnectionTimer;
  std::shared_ptr<FTPCommandSocket> CommandSocket;
  QString ID;
  bool PassiveMode = false;
  QString FTPTransferType;
  QList<std::shared_ptr<FolderItem>> FileFolderItems;
  double SessionStartTime = 0;
  qint32 RestartByteCount = 0;
  // The caller's text of SITECommand and DirectCommand. C++ cannot give a field and a
  // method one name, so the field is DirectCommandText here; the shell calls it
  // DirectCommand, as it calls the operation.
  QString DirectCommandText;
  bool FTPS = false;
  // Added safeguards, after the fields above.
  // The longest reply line, in bytes, that the control connection waits for; 0: no limit. A
  // server that streams text without a line end ends the session instead of filling memory.
  qint32 MaxReplyLineLength = 4 * 1024 * 1024;
  // With true, a download or a listing ends only once its data connection has ended too, not
  // as soon as no received bytes wait: a 226 that overtakes the first byte of the data would
  // otherwise end the transfer empty. A close that does not come within Timeout ends the session.
  bool WaitForDataClose = false;
  // With FTPS: once the server has answered "PROT P" with 200, every data connection (both
  // modes, both directions) runs TLS too, resuming the control connection's TLS session, as
  // servers may demand. False, or any other answer to PROT: data goes in the clear.
  bool SecureDataConnection = false;
  // Every TLS handshake of the session checks the server's certificate chain against
  // TrustedCertificateFile (a PEM file; empty: the system's trusted roots) and its name
  // against ServerAddress (an IP address as an address). A failure ends the session with
  // "Error: 108 (" and the reason ")".
  bool VerifyServerCertificate = false;
  QString TrustedCertificateFile;

  // Constructor() and Constructor(id). Make sessions with std::make_shared: a running
  // session keeps itself alive through its open connections.
  FTPSessionClass();
  explicit FTPSessionClass(const QString& id);
  virtual ~FTPSessionClass();
  FTPSessionClass(const FTPSessionClass&) = delete;
  FTPSessionClass& operator=(const FTPSessionClass&) = delete;

  // Overridable operations.
  virtual void SetLoginInfo(const QString& server, const QString& userID, const QString& password);
  virtual void AddFileName(const QString& name);
  virtual void SetLocalDirectoryPathName(const QString& path);
  virtual void SetServerDirectoryPathName(const QString& path);
  virtual QString GetLocalDirectoryPathName();
  virtual QString GetServerDirectoryPathName();
  virtual QString GetNextFileName();
  virtual void NextDataPort();
  virtual void SetTimeoutSeconds(qint32 seconds);
  virtual void SetStatusReporting(bool on);
  virtual void SetServerEncoding(const TextEncoding& encoding);
  virtual void SetLocalFolderItem(const std::shared_ptr<FolderItem>& item);
  virtual void SetDataPortRange(qint32 start, qint32 end);
  virtual void ChangeDir();
  virtual void ChmodSingleFile();
  virtual void DeleteDir();
  virtual void DeleteSingleFile();
  virtual void EndFTPSession(const QString& text);
  virtual QString GetCurrentFTPStep();
  virtual void GetDir();
  virtual QString GetDirFromPath(const QString& path);
  virtual void GetDirList();
  virtual void GetFiles(const QString& serverPrefix, const QString& localPath);
  virtual void GetSingleFile();
  virtual void GetStatus();
  virtual void GetSystemInfo();
  virtual void GetWorkingDir();
  virtual void Logoff();
  virtual void Logon();
  virtual void MakeDir();
  virtual void NextFTPStep(const QString& step, const QString& command, const QString& statusText);
  virtual void ParseCommandBuffer();
  virtual void PutDir();
  virtual void PutSingleFile();
  virtual void RemoveDir();
  virtual void RenameSingleFile();
  virtual void ResetConnectionTimer();
  virtual void StartDeleteDir();
  virtual void StartDeleteFile();
  virtual void StartGetDir();
  virtual void StartGetDirList();
  virtual void StartGetFile();
  virtual void StartPutDir();
  virtual void StartPutFile();
  virtual void StartRenameFile();
  virtual QString GetFTPSessionType();
  virtual void ParseCommandBuffer(qint32 code);
  // One listing line as a record. A read past the line's last token raises
  // OutOfBoundsException, which nothing in the session catches.
  virtual std::shared_ptr<FTPParsedDirListLineClass> ParseDirListLine(const QString& line);
  virtual void ParentDir();
  virtual void RestartGetSingleFile();
  virtual void RestartPutSingleFile();
  virtual void AbortTransfer();
  virtual void SITECommand(const QString& command);
  virtual void DirectCommand(const QString& command);
  virtual void ExecuteDirectCommandSteps(const QString& replyLine, qint32 replyCode);
  virtual QString GetVelmarVersion();

  // Plain methods.
  bool SocketsActive();
  bool SuccessfulMessage(const QString& text);
  QString Squeeze(const QString& text, const QString& chars);
  QString BuildPortString();
  void CalcSetPassivePort(const QString& line);
  qint32 CalculatePassivePort(const QString& line);
  void SetPassivePort(qint32 port);
  qint32 GetFileCount();
  void DeleteLocalFile(const QString& name);
  // The index in DirList of the first directory named path, or -1.
  qint32 GetCurrentDirectoryIndex(const QString& path);
  // The last "/"-field of a server path (empty after a trailing "/").
  QString GetFileFromPath(const QString& path);
  // The local path of the parent folder, ending in FileDelimiter; a trailing delimiter is
  // stepped over. Empty when there is none.
  QString UpOneLocalDirectory(const QString& path);

  // The step machines.
  void ExecuteLogonSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteLogoffSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteChangeDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteParentDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteMakeDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteRemoveDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetWorkingDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteDeleteSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteRenameSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteChmodSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteStatusSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteSystemInfoSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteSITESteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetDirListSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetDirListImmediateSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetDirImmediateSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteGetSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecutePutSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteRestartGetSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteRestartPutSingleFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteAbortTransferSteps(const QString& replyLine, qint32 replyCode);
  void ExecutePutFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecutePutDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecutePutDirImmediateSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteDeleteFileSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteDeleteDirSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteDeleteDirImmediateSteps(const QString& replyLine, qint32 replyCode);
  void ExecuteRenameFileSteps(const QString& replyLine, qint32 replyCode);

  // The platform's line end, used by the error branch.
  static const QString EndOfLine;

  // Called by the data socket once a tree walk's listing has been taken in at its close: a
  // walk whose 226 came before that close goes on now (see ListDirectorySteps).
  void ListingTakenIn();
  // Used by both sockets. A socket's error code as the session reports it: with one of the added TLS settings on,
  // a TLS failure (108) is followed by its reason in parentheses.
  QString SocketErrorText(const SSLSocket& socket) const;

protected:
  // The rules that all machines share.
  static bool FinalLineBlankForm(const QString& line);
  static bool FinalLineHyphenForm(const QString& line);
  bool StepIs(const char* step) const;
  static bool CodeIn(qint32 code, std::initializer_list<qint32> codes);
  void UnknownStepBranch();
  void ErrorBranch(const QString& replyLine);
  void ErrorBranchCR(const QString& replyLine);
  void QuietEnd(const QString& message);
  // The one reply of a one-command step: the accepted code ends quietly with `message`,
  // any other takes the error branch.
  void QuietEndIf(bool accepted, const QString& replyLine, const QString& message);

  // Prologue of the resident family: the SocketsActive guard, the session type, the
  // first step (run at once and synchronously through the "NOOP" pseudo-command, unless
  // another first command is given), then Buffer cleared, the timer re-armed and
  // IgnoreCancel set. Returns false when the guard failed. `prepare` runs after NT is
  // cleared, before the first step.
  // `ignoreCancelFirst` sets IgnoreCancel before the timer is re-armed rather than after.
  bool EnterResident(const char* sessionType, const char* firstStep, const QString& statusText,
                     const std::function<void()>& prepare = {}, const char* firstCommand = "NOOP",
                     bool ignoreCancelFirst = false);

  // Prologue of the connecting family: first step shown (nothing sent), Buffer cleared,
  // timer armed, both sockets made anew and the control connection opened. `prepare`
  // runs after IgnoreCancel is cleared, before the first step.
  void EnterConnecting(const char* sessionType, const char* firstStep, const char* statusText,
                       const std::function<void()>& prepare = {});
  // Steps 4 to 6 of the connecting prologue, in two halves so that Logon can set
  // IgnoreCancel between them: new data and command sockets (TLS prepared when FTPS),
  // then Address, Port and Connect.
  void CreateSockets();
  void ConnectCommandSocket();

  // The logon prefix shared by the connecting machines: "CONNECT" to "PASS", with the
  // explicit TLS steps. Each machine passes its own accepted codes.
  enum class PrefixOutcome { NotAPrefixStep, Handled, LoggedOn };
  PrefixOutcome LogonPrefixSteps(const QString& replyLine, qint32 replyCode,
                                 std::initializer_list<qint32> greetingCodes,
                                 std::initializer_list<qint32> userCodes);
  // The head of the connecting machines that work in one server directory: the logon
  // prefix, then "CWD" `path` (only 250 goes on) unless the path is empty, then `goOn`.
  // Returns false when the step is none of these.
  bool LogonThenDirectorySteps(const QString& replyLine, qint32 replyCode, const QString& path,
                               const std::function<void()>& goOn);
  // Turns the command socket to TLS and waits, in the event loop, for the handshake.
  void SecureCommandConnection();
  // The certificate checks of VerifyServerCertificate, for a socket that will run TLS.
  void ApplyCertificateChecks(SSLSocket& socket) const;
  // After "PROT P" was accepted: the data socket runs TLS on each of its connections.
  void SecureDataConnections();

  // The data-connection sub-sequence. A set names the steps and texts of one use of it
  // (the first set; the next and subdirectory sets of the tree walks).
  struct DataModeSet {
    const char* passiveStep;
    const char* activeStep;
    const char* portStep;
    const char* passiveStatus;
    const char* activeStatus;
    const char* portStatus;  // followed by DataPort
  };
  static const DataModeSet FirstSet;
  static const DataModeSet NextSet;
  static const DataModeSet SubdirectorySet;
  // When a machine listens in active mode: right after sending PORT, on its 200, or never
  // (then only the data socket's port is set).
  enum class ListenKind { Early, Late, Never };
  enum class DataLeg { NotASubStep, Handled, PassiveReady, PortAccepted };
  // At the machine's entry step: "PASV", or the pseudo-command into the active leg.
  void ChooseDataMode(const DataModeSet& set);
  // The sub-sequence's own steps. Handled: the step sent its command or took the error
  // branch. PassiveReady: 227 arrived; the machine connects in its own way and resumes.
  // PortAccepted: 200 arrived on PORT, the listen of `listen` is done; the machine resumes.
  DataLeg DataConnectionSteps(const QString& replyLine, qint32 replyCode, const DataModeSet& set,
                              ListenKind listen);

  // The data leg of PutFile and PutSingleFile: in active mode nothing listens (the
  // announced port is only stored); on 227 or PORT's 200 the next name goes to the data
  // socket before the connect (its connected event opens the file), then STOR. Returns
  // false when the step is none of the leg's.
  bool UploadDataLegSteps(const QString& replyLine, qint32 replyCode);
  // The same leg with the machine's own listen (Never or Late, done once the name is with
  // the data socket) and its own resume, given the name.
  bool UploadDataLegSteps(const QString& replyLine, qint32 replyCode, ListenKind listen,
                          const std::function<void(const QString& name)>& resume);
  // "STOR" of the uploads: 150 or 125 wait, 226 or 250 end quietly.
  void StoreStep(const QString& replyLine, qint32 replyCode);

  // The first data leg of the machines that connect at once and listen early, resuming with
  // the machine's own step, command and status (through the pseudo-command "NOOP" where
  // nothing is to be sent). Returns false when the step is none of the leg's.
  bool FirstDataLegSteps(const QString& replyLine, qint32 replyCode, const char* resumeStep,
                         const QString& resumeCommand, const QString& resumeStatus);
  // One round of a batch up to the machine's own step: "LOOP" on 200 chooses the data mode,
  // the first data leg resumes with "TYPE", and "TYPE" on 200 goes on by NOOP to `step`.
  // Returns false when the step is none of these.
  bool BatchRoundSteps(const QString& replyLine, qint32 replyCode, const char* step, const QString& statusText);
  // The end of a batch round: "QUIT" once no name is left, else the next port (active mode)
  // and back to "LOOP" by NOOP.
  void NextRoundOrQuit();
  // RNFR with the next name of Files (the old name of a pair), on to "TO".
  void SendRenameFrom();
  // "TO" of both renames: 350 sends RNTO with the next name (the new one), on to "DONE".
  void RenameToStep(const QString& replyLine, qint32 replyCode);
  // "DELETEFILE" of both deletes by name: the next name to the data socket, then DELE.
  void DeleteNextFileStep(const QString& replyLine, qint32 replyCode);
  // "GETFILE" of the downloads: the next name to the data socket (which creates the local
  // file), any older file of that name deleted, then RETR.
  void FetchNextFileStep(const QString& replyLine, qint32 replyCode);
  // "RETR" of the downloads: `waitCodes` wait, 226 goes on to "FILEEND".
  void RetrieveStep(const QString& replyLine, qint32 replyCode, std::initializer_list<qint32> waitCodes);
  // "FILEEND" and "LISTEND": true once the data socket has closed and emptied FileData;
  // else one more real NOOP in `step`. A reply other than 200 takes the error branch.
  bool DataHandedOver(const QString& replyLine, qint32 replyCode, const char* step, const QString& statusText);
  // The steps of both listing machines from the data leg to the listing's 226.
  bool ListingSteps(const QString& replyLine, qint32 replyCode);
  // LIST or NLST, with " -a" for hidden entries.
  QString ListingCommand() const;
  // "QUIT" of the connecting machines: what is left on the control connection is read,
  // then the session ends with `message`, whatever the answer.
  void QuitStep(const QString& message);
  // STAT and SYST: one machine with its own step, command, status text and reply code.
  void ServerQuerySteps(const QString& replyLine, qint32 replyCode, const char* queryStep, const char* command,
                        const char* statusText, qint32 acceptedCode);

  // The transfer loop that both recursive upload machines share; `resident` picks the
  // ending (quiet for PutDir, QUIT for StartPutDir).
  void PutDirLoopSteps(const QString& replyLine, qint32 replyCode, bool resident);
  // The head of the connecting tree walks (logon, TYPE A, the first data mode, QUIT with
  // `quitMessage`) and of the resident ones ("START"). False when the step is the walk's own.
  bool ConnectingTreeHeadSteps(const QString& replyLine, qint32 replyCode, const char* quitMessage);
  bool ResidentTreeHeadSteps(const QString& replyLine, qint32 replyCode);
  // A data leg of the tree walks: 227 connects and goes on by NOOP to `resumeStep` (then
  // Handled); the 200 that completes the leg comes back as PortAccepted.
  DataLeg TreeDataLeg(const QString& replyLine, qint32 replyCode, const DataModeSet& set, const char* resumeStep,
                      const char* resumeStatus);
  // "PWD" and "LIST" of the tree walks: the directory named by the server's PWD is listed
  // with LIST -a, and its 226 goes on by NOOP to `afterListing` (taking the next port in
  // active mode when `nextPortAfterListing`), once the listing's connection has closed.
  // False for any other step.
  bool ListDirectorySteps(const QString& replyLine, qint32 replyCode, const char* afterListing,
                          bool nextPortAfterListing);
  // The walk that both recursive download machines share from the first data leg on;
  // `resident` picks the ending (quiet for GetDir, QUIT for StartGetDir) and whether a path
  // not found is told.
  void TreeDownloadSteps(const QString& replyLine, qint32 replyCode, bool resident);
  void NextFileStep(bool resident);
  void NextSubdirectoryStep(bool resident);
  void LeaveDirectoryStep(bool resident);
  void EnterLocalFolderOf(const QString& serverPath);
  void PathNotFound(const char* step, bool resident);
  // The walk that both recursive delete machines share from the first data leg on;
  // `resident` picks the ending and whether a path not found is told.
  void TreeDeleteSteps(const QString& replyLine, qint32 replyCode, bool resident);
  void DeleteNextTreeFileStep(bool resident);
  void NextSubdirectoryToDeleteStep(bool resident);
  void RemoveLeftDirectoryStep();
  void SeedDeleteWalk();

  // The entry of the upload script at hand.
  QString CurrentPutDirEntry();

  // Writes a command line on the control connection in the server's encoding.
  void WriteCommand(const QString& command);

private:
  void Construct(const QString* id);

  // The step that a 226 which came before its listing's close goes on to at that close.
  QString stepAfterListing_;
  // Since when a transfer's end waits for its data connection's close (WaitForDataClose).
  QElapsedTimer dataCloseWait_;
};

}  // namespace velmar
