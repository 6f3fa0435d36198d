// The main window at work: drops against scripted servers (one per session, so that the
// sessions of one drop run side by side), status rows by ID, the busy indicator, Cancel,
// the second drop, refused drags, and the headless runner.
#include "AppFixture.h"

#include "app/ChasingArrows.h"
#include "app/DragItem.h"
#include "app/DropRunner.h"
#include "app/FileTypes.h"
#include "app/Listbox.h"
#include "platform/FolderItem.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPStatusClass.h"
#include "support/QtPrinters.h"
#include "support/ScriptedFtpServer.h"
#include "support/TestFiles.h"

#include <QDropEvent>
#include <QMimeData>
#include <QPushButton>
#include <QThread>

#include <map>

namespace velmar::test {
namespace {

QList<ScriptAction> Stored() { return {Line("150 go"), DataReceiveAll(), Line("226 done")}; }

class DropTest : public AppFixture {
protected:
  QTemporaryDir local;
  // The servers by session ID; the drop points each new session at the server of its ID.
  std::map<QString, std::unique_ptr<ScriptedFtpServer>> servers;
  QList<std::shared_ptr<FTPSessionClass>> started;
  // row changes as "row<TAB>id<TAB>text", as the headless mode prints them
  QStringList rowChanges;

  void SetUp() override {
    AppFixture::SetUp();
    ASSERT_TRUE(local.isValid());
    Globals::Server = "127.0.0.1";
    Globals::LoginID = "u";
    Globals::Password = "p";
    MainWindow::SetNewSessionHook([this](FTPSessionClass& session) {
      auto found = servers.find(session.ID);
      ASSERT_NE(found, servers.end()) << "no server for session " << session.ID.toStdString();
      // The app's own choice, before the test points the session elsewhere.
      EXPECT_EQ(session.CommandPort, 21);
      session.CommandPort = found->second->Port();
      started.append(session.shared_from_this());
    });
    MainWindow::SetRowObserver([this](int, const QString& id, const QString& text) {
      rowChanges.append("row\t" + id + "\t" + text);
    });
  }

  void TearDown() override {
    // Sessions of an earlier drop are no longer in Globals::Session.
    for (const auto& session : started) session->EndFTPSession(QString());
    started.clear();
    AppFixture::TearDown();
    servers.clear();
  }

  ScriptedFtpServer& Server(const QString& id) {
    auto& slot = servers[id];
    if (!slot) slot = std::make_unique<ScriptedFtpServer>();
    return *slot;
  }
  ScriptedFtpServer& Logon(const QString& id, const QString& passAnswer = "230 in") {
    return Server(id).OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line(passAnswer)});
  }
  // The upload of one file by session `id`, into `folder` first where one is given.
  ScriptedFtpServer& PutFile(const QString& id, const QString& name, const QString& folder = {},
                             QList<ScriptAction> quit = {Line("221 bye")}) {
    ScriptedFtpServer& server = folder.isEmpty() ? Logon(id) : Logon(id).Expect("CWD " + folder, {Line("250 ok")});
    return server.Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR " + name, Stored())
        .Expect("QUIT", quit);
  }
  // The upload of a folder holding one file, made on the server first where `make`.
  void PutDir(const QString& id, const QString& folder, const QString& file, bool make) {
    ScriptedFtpServer& server = Logon(id);
    if (make) server.Expect("CWD " + folder, {Line("550 no")}).Expect("MKD " + folder, {Line("257 made")});
    server.Expect("CWD " + folder, {Line("250 ok")}).Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()})
        .Expect("STOR " + file, Stored()).Expect("PASV", {OpenPassive()}).Expect("CDUP", {Line("250 ok")})
        .Expect("QUIT", {Line("221 bye")});
  }
  // A local file (made with the given bytes) by its path.
  QString Local(const QString& name, const QByteArray& bytes = "x") {
    WriteFile(local.filePath(name), bytes);
    return local.filePath(name);
  }
  void Drop(const QStringList& paths) {
    QList<QUrl> urls;
    for (const QString& path : paths) urls.append(QUrl::fromLocalFile(path));
    MainWindow::Instance()->DropUrls(urls);
  }
  Listbox& Rows() { return *MainWindow::Instance()->StatusListBox; }
  QStringList Column(int column) {
    QStringList cells;
    for (int row = 0; row < Rows().ListCount(); ++row) cells.append(Rows().Cell(row, column));
    return cells;
  }
  bool AllEnded() {
    const bool ended = RunUntil([&] {
      for (const QString& text : Column(2))
        if (!Globals::Session.first()->SuccessfulMessage(text) && !text.startsWith("Error")) return false;
      return true;
    });
    // Where it stopped: the rows and what each server saw.
    std::string state = "rows: " + Column(2).join(" | ").toStdString();
    for (const auto& [id, server] : servers)
      state += "\nserver " + id.toStdString() + ": " + (server->Commands() + server->Mismatches()).join(", ").toStdString();
    EXPECT_TRUE(ended) << state << "\nrow changes:\n" << rowChanges.join('\n').toStdString();
    return ended;
  }
  void NoMismatches() {
    for (const auto& [id, server] : servers) EXPECT_EQ(server->Mismatches(), QStringList()) << id.toStdString();
  }
};

TEST_F(DropTest, FilesAndAFolderGetARowAndASessionEachAndArriveOnTheServers) {
  Globals::ServerPath = "/up";
  Local("tree/f", "file f");
  Local("tree/empty", "");  // left out of a folder
  PutFile("0", "one.txt", "/up");
  PutFile("1", "two words.bin", "/up");
  PutDir("2", "/up/tree", "f", true);  // a folder goes under the server path with its own name
  Drop({Local("one.txt", "first file"), Local("two words.bin", QByteArray(5000, 'x')), local.filePath("tree")});
  ASSERT_EQ(Globals::Session.size(), 3);
  EXPECT_EQ(Column(0), (QStringList{"0", "1", "2"}));
  // All three connect at once: each server has its client before any session has ended.
  ASSERT_TRUE(RunUntil([&] { return servers["0"]->ConnectionCount() && servers["1"]->ConnectionCount() &&
                                    servers["2"]->ConnectionCount(); }));
  ASSERT_TRUE(AllEnded());
  EXPECT_EQ(Column(1), (QStringList{"File Transfer", "File Transfer", "File Transfer"}));
  EXPECT_EQ(Column(2), (QStringList{"File Transfer Complete.", "File Transfer Complete.",
                                    "Directory Transfer Complete."}));
  NoMismatches();
  EXPECT_EQ(servers["0"]->ReceivedData(), QList<QByteArray>{"first file"});
  EXPECT_EQ(servers["1"]->ReceivedData(), QList<QByteArray>{QByteArray(5000, 'x')});
  EXPECT_EQ(servers["2"]->ReceivedData(), QList<QByteArray>{"file f"});
  EXPECT_TRUE(MainWindow::Instance()->ChasingArrows1->isHidden());
  // The reports reached the rows in between, progress included.
  EXPECT_TRUE(rowChanges.contains("row\t1\tTransferring: 4 KB")) << rowChanges.join('\n').toStdString();
  EXPECT_TRUE(rowChanges.contains("row\t2\tCreate directory: /up/tree"));
  // With an empty server path a folder goes to the root and a file needs no CWD; Cancel
  // after the end replaces the result.
  Globals::ServerPath.clear();
  Local("d/x");
  servers.clear();
  PutDir("0", "/d", "x", false);
  PutFile("1", "f");
  Drop({local.filePath("d"), Local("f")});
  ASSERT_TRUE(AllEnded());
  EXPECT_EQ(Column(2), (QStringList{"Directory Transfer Complete.", "File Transfer Complete."}));
  NoMismatches();
  Rows().SetListIndex(0);
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(Column(2), (QStringList{"Session cancelled by user.", "File Transfer Complete."}));
}

TEST_F(DropTest, ServerPathEndingInASlashIsNotNormalised) {
  Globals::ServerPath = "/up/";
  Local("d/x");
  Logon("0").Expect("CWD /up//d", {Line("550 no such directory")}).Expect("MKD /up//d", {Line("550 refused")});
  Drop({local.filePath("d")});
  ASSERT_TRUE(AllEnded());
  EXPECT_EQ(Column(2), QStringList{"Error: 550 refused\n"});
  EXPECT_EQ(servers["0"]->Mismatches(), QStringList());
}

TEST_F(DropTest, AReportThatArrivesDuringTheYieldOfAnOlderOneStaysInTheRow) {
  MainWindow& window = *MainWindow::Instance();
  Rows().AddRow("1");
  Rows().AddRow("0");
  // The newer report is delivered by the yield after row 0, before the older one reaches
  // row 1; the yield runs at most once a millisecond, hence the pause before.
  QMetaObject::invokeMethod(&window, [&] { window.UpdateStatus("0", "File Transfer Complete."); },
                            Qt::QueuedConnection);
  QThread::msleep(5);
  window.UpdateStatus("0", "FTP Session Complete.");
  EXPECT_EQ(Rows().Cell(1, 2), "File Transfer Complete.");
  EXPECT_EQ(rowChanges, QStringList{"row\t0\tFile Transfer Complete."});
  // A later report still replaces it.
  window.UpdateStatus("0", "Session cancelled by user.");
  EXPECT_EQ(Rows().Cell(1, 2), "Session cancelled by user.");
}

TEST_F(DropTest, AReportInsideTheYieldOfAnotherDoesNotYieldAgain) {
  MainWindow& window = *MainWindow::Instance();
  Rows().AddRow("0");
  Rows().AddRow("1");
  bool laterEventRan = false;
  bool ranInsideNestedReport = true;
  QMetaObject::invokeMethod(
      &window,
      [&] {
        QMetaObject::invokeMethod(&window, [&] { laterEventRan = true; }, Qt::QueuedConnection);
        QThread::msleep(5);
        window.UpdateStatus("1", "inner");
        ranInsideNestedReport = laterEventRan;
      },
      Qt::QueuedConnection);
  QThread::msleep(5);
  window.UpdateStatus("0", "outer");
  EXPECT_EQ(Column(2), (QStringList{"outer", "inner"}));
  // The nested report left the event to the outer yield instead of nesting another loop.
  EXPECT_FALSE(ranInsideNestedReport);
  EXPECT_TRUE(RunUntil([&] { return laterEventRan; }, 1000));
}

TEST_F(DropTest, StatusReceiverWritesIntoEveryRowOfItsSessionAndTheFirstEndHidesTheIndicator) {
  MainWindow& window = *MainWindow::Instance();
  Rows().AddRow("0");
  Rows().AddRow("1");
  Rows().AddRow("0");
  auto first = std::make_shared<FTPSessionClass>("0");
  auto second = std::make_shared<FTPSessionClass>("1");
  auto orphan = std::make_shared<FTPSessionClass>("9");
  ASSERT_NE(dynamic_cast<AppStatus*>(first->FTPStatusInstance.get()), nullptr);
  FTPStatusClass& one = *first->FTPStatusInstance;
  FTPStatusClass& two = *second->FTPStatusInstance;

  one.Status_FTP("Send UserID");
  EXPECT_EQ(Column(1), (QStringList{"File Transfer", "", "File Transfer"}));
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "", "Send UserID"}));
  EXPECT_EQ(rowChanges, (QStringList{"row\t0\tSend UserID", "row\t0\tSend UserID"}));
  two.Progress_FTP(1048577);
  one.Response_FTP("220 hidden dialogue");
  orphan->FTPStatusInstance->Status_FTP("into nothing");
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Transferring: 1.0 MB", "Send UserID"}));
  EXPECT_EQ(rowChanges.size(), 3);

  window.ChasingArrows1->setVisible(true);
  one.Successful_FTP("File Transfer Complete.");
  EXPECT_TRUE(window.ChasingArrows1->isHidden());
  // The other session goes on writing into its row.
  two.Progress_FTP(100);
  EXPECT_EQ(Rows().Cell(1, 2), "Transferring: 100 bytes");
  window.ChasingArrows1->setVisible(true);
  two.Error_FTP("Error: 104");
  EXPECT_TRUE(window.ChasingArrows1->isHidden());
  EXPECT_EQ(Column(2), (QStringList{"File Transfer Complete.", "Error: 104", "File Transfer Complete."}));
}

TEST_F(DropTest, CancelEndsTheSelectedSessionOnlyWithoutAbor) {
  Server("0").OnConnect({Line("220 ready")});
  Server("1").OnConnect({Line("220 ready")});
  Drop({Local("a"), Local("b")});
  ASSERT_TRUE(RunUntil([&] { return Column(2) == QStringList{"Send UserID", "Send UserID"}; }));
  // Without a selected row: a beep, and nothing is cancelled.
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(beeps, 1);
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Send UserID"}));
  Rows().SetListIndex(1);
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(beeps, 1);
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Session cancelled by user."}));
  EXPECT_EQ(Globals::Session[1]->CommandSocket, nullptr);
  EXPECT_EQ(Globals::Session[1]->DataSocket, nullptr);
  EXPECT_NE(Globals::Session[0]->CommandSocket, nullptr);
  EXPECT_TRUE(RunUntil([&] { return !servers["1"]->ClientConnected(); }));
  EXPECT_TRUE(servers["0"]->ClientConnected());
  EXPECT_EQ(servers["1"]->Commands(), QStringList{"USER u"});  // no ABOR
  // A second Cancel on the row repeats the message.
  Rows().SetCell(1, 2, "changed");
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(Rows().Cell(1, 2), "Session cancelled by user.");
}

TEST_F(DropTest, ASecondDropStartsAgainAtIdZeroAndOldReportsLandInTheNewRows) {
  // First drop: session "0" waits for the answer to USER, session "1" for its greeting.
  Server("0").OnConnect({Line("220 ready")}).Expect("USER u", {Delay(300), Line("331 ok")});
  Server("1");
  Drop({Local("a"), Local("b")});
  ASSERT_EQ(Rows().ListCount(), 2);
  const std::weak_ptr<FTPSessionClass> oldSession = Globals::Session[0];
  const std::unique_ptr<ScriptedFtpServer> oldZero = std::move(servers["0"]);
  ASSERT_TRUE(RunUntil([&] { return oldZero->Commands() == QStringList{"USER u"}; }));

  // Second drop: one item, again ID "0", to a new server that never greets.
  Server("0");
  Drop({Local("c")});
  EXPECT_EQ(Column(0), QStringList{"0"});
  ASSERT_EQ(Globals::Session.size(), 1);
  EXPECT_NE(Globals::Session[0], oldSession.lock());
  // The old session "0" goes on: its next step shows in the new row "0".
  ASSERT_TRUE(RunUntil([&] { return Rows().Cell(0, 2) == "Send Password"; }));
  EXPECT_TRUE(RunUntil([&] { return oldZero->Commands() == QStringList{"USER u", "PASS p"}; }));
  EXPECT_FALSE(oldSession.expired());
}

TEST_F(DropTest, ADragWithoutLocalFilesEmptiesTheListAndSaysSo) {
  Rows().AddRow("0");
  Globals::Session.append(std::make_shared<FTPSessionClass>("0"));
  MainWindow::Instance()->DropUrls({QUrl("https://example.org/file.txt")});
  EXPECT_EQ(messages, QStringList{"Not Folder or File."});
  EXPECT_EQ(Rows().ListCount(), 0);
  EXPECT_TRUE(Globals::Session.isEmpty());
  EXPECT_TRUE(MainWindow::Instance()->ChasingArrows1->isHidden());
}

TEST_F(DropTest, DragItemKeepsOnlyLocalFilesAndNamesFoldersWithASlash) {
  Local("d/x");
  DragItem drag({QUrl("https://example.org/a"), QUrl::fromLocalFile(local.filePath("d")),
                 QUrl::fromLocalFile(local.filePath("d/x"))},
                FileTypes::pAny);
  ASSERT_TRUE(drag.FolderItemAvailable());
  EXPECT_EQ(drag.FolderItem()->AbsolutePath(), local.filePath("d") + "/");
  EXPECT_TRUE(drag.FolderItem()->Directory());
  ASSERT_TRUE(drag.NextItem());
  EXPECT_EQ(drag.FolderItem()->AbsolutePath(), local.filePath("d/x"));
  EXPECT_FALSE(drag.NextItem());
  EXPECT_FALSE(drag.FolderItemAvailable());
  EXPECT_EQ(drag.FolderItem(), nullptr);
  EXPECT_FALSE(DragItem({QUrl("mailto:x@example.org")}, FileTypes::pAny).FolderItemAvailable());
}

TEST_F(DropTest, TheWindowsDropEventStartsTheSameDropAndTheIndicatorTurns) {
  MainWindow& window = *MainWindow::Instance();
  window.show();
  Server("0").OnConnect({Line("220 ready")});  // then silent: the session waits at USER
  QMimeData files;
  files.setUrls({QUrl::fromLocalFile(Local("a"))});
  const QPoint inside(250, 100);
  QDragEnterEvent enter(inside, Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(&window, &enter);
  EXPECT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(inside), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(&window, &drop);
  EXPECT_TRUE(drop.isAccepted());
  ASSERT_TRUE(RunUntil([&] { return Rows().ListCount() == 1 && Rows().Cell(0, 2) == "Send UserID"; }));
  EXPECT_EQ(Globals::Session.size(), 1);
  // The busy indicator shows and turns while the session runs.
  ASSERT_FALSE(window.ChasingArrows1->isHidden());
  EXPECT_TRUE(window.ChasingArrows1->Animating());
  const int angle = window.ChasingArrows1->Angle();
  EXPECT_TRUE(RunUntil([&] { return window.ChasingArrows1->Angle() != angle; }, 2000));
  window.ChasingArrows1->setVisible(false);
  EXPECT_FALSE(window.ChasingArrows1->Animating());

  QMimeData text;
  text.setText("just text");
  QDragEnterEvent refused(inside, Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
  refused.ignore();
  QCoreApplication::sendEvent(&window, &refused);
  EXPECT_FALSE(refused.isAccepted());
}

TEST_F(DropTest, HeadlessRunnerPrintsEscapedRowsAndFinishesWhenEverySessionHasEnded) {
  MainWindow::SetRowObserver(nullptr);
  // Session "0" is refused, then succeeds; "1" ends later than "0": its server holds back
  // the answer to QUIT. A failed session leaves its message in its own row, and no dialog.
  for (bool refused : {true, false}) {
    SCOPED_TRACE(refused ? "refused" : "both succeed");
    servers.clear();
    if (refused) Logon("0", "530 no\tway");
    else PutFile("0", "a");
    PutFile("1", "b", {}, {Delay(300), Line("221 bye")});
    const QStringList ends{refused ? "Error: 530 no\tway\n" : "File Transfer Complete.", "File Transfer Complete."};
    QStringList lines;
    DropRunner runner([&](const QString& line) { lines.append(line); });
    int finishedCalls = 0;
    bool endedAtFinish = false;
    runner.SetFinishedCallback([&] {
      ++finishedCalls;
      endedAtFinish = Column(2) == ends;
    });
    runner.Start({Local("a"), Local("b")});
    ASSERT_TRUE(RunUntil([&] { return runner.Finished(); }));
    EXPECT_EQ(finishedCalls, 1);
    EXPECT_TRUE(endedAtFinish) << Column(2).join(" | ").toStdString();
    EXPECT_EQ(runner.ExitStatus(), refused ? 1 : 0);
    EXPECT_EQ(lines.first(), "row\t0\tStart Put File Sequence");
    // Control characters of the text are escaped, so each change stays one line.
    EXPECT_TRUE(lines.contains(refused ? "row\t0\tError: 530 no\\tway\\n" : "row\t0\tFile Transfer Complete."))
        << lines.join('\n').toStdString();
    EXPECT_EQ(lines.last(), "row\t1\tFile Transfer Complete.");
  }
  EXPECT_TRUE(messages.isEmpty());
}

TEST(DropRunnerTextTest, EscapeTextKeepsEveryReportOnOneLine) {
  EXPECT_EQ(DropRunner::EscapeText("plain text äö"), "plain text äö");
  EXPECT_EQ(DropRunner::EscapeText("a\\b\r\n\tc\x01\x7f"), "a\\\\b\\r\\n\\tc\\x01\\x7f");
}

}  // namespace
}  // namespace velmar::test
