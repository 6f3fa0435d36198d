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

#include <QDir>
#include <QDropEvent>
#include <QFile>
#include <QMimeData>
#include <QPushButton>
#include <QTemporaryDir>
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
  ScriptedFtpServer& Logon(const QString& id) {
    return Server(id).OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line("230 in")});
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
  bool AllEnded(int timeoutMs = 10000) {
    const bool ended = RunUntil(
        [&] {
          for (const QString& text : Column(2))
            if (!Globals::Session.first()->SuccessfulMessage(text) && !text.startsWith("Error")) return false;
          return true;
        },
        timeoutMs);
    if (!ended) {
      // Where it stopped: the rows and what each server saw.
      std::string state = "rows: " + Column(2).join(" | ").toStdString();
      for (const auto& [id, server] : servers)
        state += "\nserver " + id.toStdString() + ": " + server->Commands().join(", ").toStdString() + " / " +
                 server->Mismatches().join(", ").toStdString();
      ADD_FAILURE() << state << "\nrow changes:\n" << rowChanges.join('\n').toStdString();
    }
    return ended;
  }
};

TEST_F(DropTest, FilesAndAFolderGetARowAndASessionEachAndArriveOnTheServers) {
  Globals::ServerPath = "/up";
  WriteFile(local.filePath("one.txt"), "first file");
  WriteFile(local.filePath("two words.bin"), QByteArray(5000, 'x'));
  WriteFile(local.filePath("tree/f"), "file f");
  WriteFile(local.filePath("tree/empty"), "");  // left out of a folder
  Logon("0").Expect("CWD /up", {Line("250 ok")}).Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()}).Expect("STOR one.txt", Stored()).Expect("QUIT", {Line("221 bye")});
  Logon("1").Expect("CWD /up", {Line("250 ok")}).Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()}).Expect("STOR two words.bin", Stored()).Expect("QUIT", {Line("221 bye")});
  // A folder goes under the server path with its own name.
  Logon("2").Expect("CWD /up/tree", {Line("550 no")}).Expect("MKD /up/tree", {Line("257 made")})
      .Expect("CWD /up/tree", {Line("250 ok")}).Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()}).Expect("STOR f", Stored())
      .Expect("PASV", {OpenPassive()}).Expect("CDUP", {Line("250 ok")}).Expect("QUIT", {Line("221 bye")});

  Drop({local.filePath("one.txt"), local.filePath("two words.bin"), local.filePath("tree")});

  ASSERT_EQ(Globals::Session.size(), 3);
  EXPECT_EQ(Column(0), (QStringList{"0", "1", "2"}));
  for (int index = 0; index < 3; ++index) {
    const FTPSessionClass& session = *Globals::Session[index];
    EXPECT_EQ(session.ID, QString::number(index));
    EXPECT_EQ(session.ServerAddress, "127.0.0.1");
    EXPECT_EQ(session.ServerUserID, "u");
    EXPECT_EQ(session.ServerPassword, "p");
    EXPECT_TRUE(session.PassiveMode);
    EXPECT_EQ(session.Timeout, 20000);
    EXPECT_FALSE(session.FTPS);
  }
  EXPECT_EQ(Globals::Session[0]->FTPSessionType, "PutFile");
  EXPECT_EQ(Globals::Session[2]->FTPSessionType, "PutDir");
  EXPECT_EQ(Globals::Session[2]->ServerDirectory, "/up/tree");
  EXPECT_EQ(Globals::Session[2]->LocalDirectory, local.filePath("tree") + "/");
  EXPECT_EQ(Globals::Session[0]->LocalDirectory, local.path() + "/");
  // All three connect at once: each server has its client before any session has ended.
  ASSERT_TRUE(RunUntil([&] { return servers["0"]->ConnectionCount() && servers["1"]->ConnectionCount() &&
                                    servers["2"]->ConnectionCount(); }));

  ASSERT_TRUE(AllEnded());
  EXPECT_EQ(Column(1), (QStringList{"File Transfer", "File Transfer", "File Transfer"}));
  EXPECT_EQ(Column(2), (QStringList{"File Transfer Complete.", "File Transfer Complete.",
                                    "Directory Transfer Complete."}));
  for (const auto& [id, server] : servers) EXPECT_EQ(server->Mismatches(), QStringList()) << id.toStdString();
  EXPECT_EQ(servers["0"]->ReceivedData(), QList<QByteArray>{"first file"});
  EXPECT_EQ(servers["1"]->ReceivedData(), QList<QByteArray>{QByteArray(5000, 'x')});
  EXPECT_EQ(servers["2"]->ReceivedData(), QList<QByteArray>{"file f"});
  EXPECT_TRUE(MainWindow::Instance()->ChasingArrows1->isHidden());
  // The reports reached the rows in between, progress included.
  EXPECT_TRUE(rowChanges.contains("row\t1\tTransferring: 4 KB")) << rowChanges.join('\n').toStdString();
  EXPECT_TRUE(rowChanges.contains("row\t2\tCreate directory: /up/tree"));
}

TEST_F(DropTest, EmptyServerPathSendsAFolderToTheRootAndAFileWithoutCwd) {
  WriteFile(local.filePath("d/x"), "x");
  WriteFile(local.filePath("f"), "f");
  Logon("0").Expect("CWD /d", {Line("250 ok")}).Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()}).Expect("STOR x", Stored())
      .Expect("PASV", {OpenPassive()}).Expect("CDUP", {Line("250 ok")}).Expect("QUIT", {Line("221 bye")});
  Logon("1").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR f", Stored())
      .Expect("QUIT", {Line("221 bye")});
  Drop({local.filePath("d"), local.filePath("f")});
  ASSERT_TRUE(AllEnded());
  EXPECT_EQ(Column(2), (QStringList{"Directory Transfer Complete.", "File Transfer Complete."}));
  EXPECT_EQ(servers["0"]->Mismatches(), QStringList());
  EXPECT_EQ(servers["1"]->Mismatches(), QStringList());
}

TEST_F(DropTest, ServerPathEndingInASlashIsNotNormalised) {
  Globals::ServerPath = "/up/";
  WriteFile(local.filePath("d/x"), "x");
  Logon("0").Expect("CWD /up//d", {Line("550 no such directory")}).Expect("MKD /up//d", {Line("550 refused")});
  Drop({local.filePath("d")});
  ASSERT_TRUE(AllEnded());
  EXPECT_EQ(Column(2), QStringList{"Error: 550 refused\n"});
  EXPECT_EQ(servers["0"]->Mismatches(), QStringList());
}

TEST_F(DropTest, AFailedUploadLeavesItsMessageInItsRowOnly) {
  WriteFile(local.filePath("a"), "a");
  WriteFile(local.filePath("b"), "b");
  Server("0").OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line("530 wrong")});
  Logon("1").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR b", Stored())
      .Expect("QUIT", {Line("221 bye")});
  Drop({local.filePath("a"), local.filePath("b")});
  ASSERT_TRUE(AllEnded());
  EXPECT_TRUE(Rows().Cell(0, 2).startsWith("Error: 530 wrong")) << Rows().Cell(0, 2).toStdString();
  EXPECT_EQ(Rows().Cell(1, 2), "File Transfer Complete.");
  EXPECT_EQ(Rows().ListCount(), 2);  // rows stay after the end
  EXPECT_TRUE(messages.isEmpty());   // no dialog
}

TEST_F(DropTest, UpdateStatusChangesEveryRowOfTheIdAndNothingElse) {
  MainWindow& window = *MainWindow::Instance();
  Rows().AddRow("0");
  Rows().AddRow("1");
  Rows().AddRow("0");
  window.UpdateStatus("0", "hello");
  EXPECT_EQ(Column(1), (QStringList{"File Transfer", "", "File Transfer"}));
  EXPECT_EQ(Column(2), (QStringList{"hello", "", "hello"}));
  EXPECT_EQ(rowChanges, (QStringList{"row\t0\thello", "row\t0\thello"}));
  window.UpdateStatus("7", "nobody");
  EXPECT_EQ(Column(2), (QStringList{"hello", "", "hello"}));
  EXPECT_EQ(Rows().ListCount(), 3);
  EXPECT_EQ(rowChanges.size(), 2);
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

TEST_F(DropTest, StatusReceiverWritesIntoTheRowOfItsSessionAndTheFirstEndHidesTheIndicator) {
  MainWindow& window = *MainWindow::Instance();
  Rows().AddRow("0");
  Rows().AddRow("1");
  auto first = std::make_shared<FTPSessionClass>("0");
  auto second = std::make_shared<FTPSessionClass>("1");
  auto orphan = std::make_shared<FTPSessionClass>("9");
  ASSERT_NE(dynamic_cast<AppStatus*>(first->FTPStatusInstance.get()), nullptr);
  FTPStatusClass& one = *first->FTPStatusInstance;
  FTPStatusClass& two = *second->FTPStatusInstance;

  one.Status_FTP("Send UserID");
  two.Progress_FTP(1025);
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Transferring: 1 KB"}));
  two.Progress_FTP(1048577);
  EXPECT_EQ(Rows().Cell(1, 2), "Transferring: 1.0 MB");
  one.Response_FTP("220 hidden dialogue");
  EXPECT_EQ(Rows().Cell(0, 2), "Send UserID");
  orphan->FTPStatusInstance->Status_FTP("into nothing");
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Transferring: 1.0 MB"}));

  window.ChasingArrows1->setVisible(true);
  one.Successful_FTP("File Transfer Complete.");
  EXPECT_TRUE(window.ChasingArrows1->isHidden());
  // The other session goes on writing into its row.
  two.Progress_FTP(100);
  EXPECT_EQ(Rows().Cell(1, 2), "Transferring: 100 bytes");
  window.ChasingArrows1->setVisible(true);
  two.Error_FTP("Error: 104");
  EXPECT_TRUE(window.ChasingArrows1->isHidden());
  EXPECT_EQ(Column(2), (QStringList{"File Transfer Complete.", "Error: 104"}));
}

TEST_F(DropTest, TheIndicatorShowsDuringADropAndAnimatesWhileShown) {
  MainWindow& window = *MainWindow::Instance();
  window.show();
  WriteFile(local.filePath("a"), "a");
  Server("0").OnConnect({Line("220 ready")});  // then silent: the session waits at USER
  Drop({local.filePath("a")});
  ASSERT_FALSE(window.ChasingArrows1->isHidden());
  EXPECT_TRUE(window.ChasingArrows1->Animating());
  const int angle = window.ChasingArrows1->Angle();
  EXPECT_TRUE(RunUntil([&] { return window.ChasingArrows1->Angle() != angle; }, 2000));
  window.ChasingArrows1->setVisible(false);
  EXPECT_FALSE(window.ChasingArrows1->Animating());
}

TEST_F(DropTest, CancelWithoutASelectedRowBeepsAndCancelsNothing) {
  WriteFile(local.filePath("a"), "a");
  Server("0").OnConnect({Line("220 ready")});
  Drop({local.filePath("a")});
  ASSERT_TRUE(RunUntil([&] { return Rows().Cell(0, 2) == "Send UserID"; }));
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(beeps, 1);
  EXPECT_EQ(Rows().Cell(0, 2), "Send UserID");
  EXPECT_NE(Globals::Session[0]->CommandSocket, nullptr);
}

TEST_F(DropTest, CancelEndsTheSelectedSessionOnlyWithoutAbor) {
  WriteFile(local.filePath("a"), "a");
  WriteFile(local.filePath("b"), "b");
  Server("0").OnConnect({Line("220 ready")});
  Server("1").OnConnect({Line("220 ready")});
  Drop({local.filePath("a"), local.filePath("b")});
  ASSERT_TRUE(RunUntil([&] { return Column(2) == QStringList{"Send UserID", "Send UserID"}; }));
  Rows().SetListIndex(1);
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(beeps, 0);
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

TEST_F(DropTest, CancelAfterTheEndReplacesTheResult) {
  WriteFile(local.filePath("a"), "a");
  Logon("0").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR a", Stored())
      .Expect("QUIT", {Line("221 bye")});
  Drop({local.filePath("a")});
  ASSERT_TRUE(AllEnded());
  ASSERT_EQ(Rows().Cell(0, 2), "File Transfer Complete.");
  Rows().SetListIndex(0);
  MainWindow::Instance()->CancelPushButton->click();
  EXPECT_EQ(Rows().Cell(0, 2), "Session cancelled by user.");
}

TEST_F(DropTest, ASecondDropStartsAgainAtIdZeroAndOldReportsLandInTheNewRows) {
  WriteFile(local.filePath("a"), "a");
  WriteFile(local.filePath("b"), "b");
  WriteFile(local.filePath("c"), "c");
  // First drop: session "0" waits for the answer to USER, session "1" for its greeting.
  ScriptedFtpServer oldZero;
  oldZero.OnConnect({Line("220 ready")}).Expect("USER u", {Delay(300), Line("331 ok")});
  Server("1");
  MainWindow::SetNewSessionHook([&](FTPSessionClass& session) {
    session.CommandPort = session.ID == "0" ? oldZero.Port() : servers["1"]->Port();
    started.append(session.shared_from_this());
  });
  Drop({local.filePath("a"), local.filePath("b")});
  ASSERT_EQ(Rows().ListCount(), 2);
  const std::weak_ptr<FTPSessionClass> oldSession = Globals::Session[0];
  ASSERT_TRUE(RunUntil([&] { return oldZero.Commands() == QStringList{"USER u"}; }));

  // Second drop: one item, again ID "0", to a server that never greets.
  Server("new0");
  MainWindow::SetNewSessionHook([&](FTPSessionClass& session) {
    session.CommandPort = servers["new0"]->Port();
    started.append(session.shared_from_this());
  });
  Drop({local.filePath("c")});
  EXPECT_EQ(Column(0), QStringList{"0"});
  ASSERT_EQ(Globals::Session.size(), 1);
  EXPECT_EQ(Globals::Session[0]->ID, "0");
  EXPECT_NE(Globals::Session[0], oldSession.lock());
  // The old session "0" goes on: its next step shows in the new row "0".
  ASSERT_TRUE(RunUntil([&] { return Rows().Cell(0, 2) == "Send Password"; }));
  EXPECT_TRUE(RunUntil([&] { return oldZero.Commands().size() == 2; }));
  EXPECT_EQ(oldZero.Commands(), (QStringList{"USER u", "PASS p"}));
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
  WriteFile(local.filePath("d/x"), "x");
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

TEST_F(DropTest, TheWindowsDropEventStartsTheSameDrop) {
  MainWindow& window = *MainWindow::Instance();
  window.show();
  WriteFile(local.filePath("a"), "a");
  Server("0").OnConnect({Line("220 ready")});
  QMimeData files;
  files.setUrls({QUrl::fromLocalFile(local.filePath("a"))});
  const QPoint inside(250, 100);
  QDragEnterEvent enter(inside, Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(&window, &enter);
  EXPECT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(inside), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(&window, &drop);
  EXPECT_TRUE(drop.isAccepted());
  ASSERT_TRUE(RunUntil([&] { return Rows().ListCount() == 1 && Rows().Cell(0, 2) == "Send UserID"; }));
  EXPECT_EQ(Globals::Session.size(), 1);

  QMimeData text;
  text.setText("just text");
  QDragEnterEvent refused(inside, Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
  refused.ignore();
  QCoreApplication::sendEvent(&window, &refused);
  EXPECT_FALSE(refused.isAccepted());
}

TEST_F(DropTest, HeadlessRunnerPrintsRowsAndFinishesWhenEverySessionHasEnded) {
  WriteFile(local.filePath("a"), "a");
  WriteFile(local.filePath("b"), "b");
  Logon("0").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR a", Stored())
      .Expect("QUIT", {Line("221 bye")});
  // Session "1" ends later than "0": its server holds back the answer to QUIT.
  Logon("1").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR b", Stored())
      .Expect("QUIT", {Delay(300), Line("221 bye")});
  MainWindow::SetRowObserver(nullptr);
  QStringList lines;
  DropRunner runner([&](const QString& line) { lines.append(line); });
  int finishedCalls = 0;
  bool bothEndedAtFinish = false;
  runner.SetFinishedCallback([&] {
    ++finishedCalls;
    bothEndedAtFinish = Column(2) == QStringList{"File Transfer Complete.", "File Transfer Complete."};
  });
  runner.Start({local.filePath("a"), local.filePath("b")});
  ASSERT_TRUE(RunUntil([&] { return runner.Finished(); }));
  EXPECT_EQ(finishedCalls, 1);
  EXPECT_TRUE(bothEndedAtFinish);
  EXPECT_EQ(runner.ExitStatus(), 0);
  EXPECT_EQ(lines.first(), "row\t0\tStart Put File Sequence");
  EXPECT_TRUE(lines.contains("row\t0\tFile Transfer Complete."));
  EXPECT_EQ(lines.last(), "row\t1\tFile Transfer Complete.");
}

TEST_F(DropTest, HeadlessRunnerFailsWhenOneRowDidNotSucceed) {
  WriteFile(local.filePath("a"), "a");
  WriteFile(local.filePath("b"), "b");
  Logon("0").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR a", Stored())
      .Expect("QUIT", {Line("221 bye")});
  Logon("1").Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()})
      .Expect("STOR b", {Line("553 no\tway")});
  QStringList lines;
  DropRunner runner([&](const QString& line) { lines.append(line); });
  runner.Start({local.filePath("a"), local.filePath("b")});
  ASSERT_TRUE(RunUntil([&] { return runner.Finished(); }));
  EXPECT_EQ(runner.ExitStatus(), 1);
  // Control characters of the text are escaped, so each change stays one line.
  EXPECT_TRUE(lines.contains("row\t1\tError: 553 no\\tway\\n")) << lines.join('\n').toStdString();
}

TEST(DropRunnerTextTest, EscapeTextKeepsEveryReportOnOneLine) {
  EXPECT_EQ(DropRunner::EscapeText("plain text äö"), "plain text äö");
  EXPECT_EQ(DropRunner::EscapeText("a\\b\r\n\tc\x01\x7f"), "a\\\\b\\r\\n\\tc\\x01\\x7f");
}

}  // namespace
}  // namespace velmar::test
