// The main window at work: drops against scripted servers (one per session, so that the
// sessions of one drop run side by side), status rows by ID, the busy indicator, Cancel,
// the second drop, refused drags, and the headless runner.
#include "AppFixture.h"

#include "app/ChasingArrows.h"
#include "app/DropRunner.h"
#include "app/Listbox.h"
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

class DropTest : public AppFixture {
protected:
  QTemporaryDir local;
  // The servers by session ID; the drop points each new session at the server of its ID.
  std::map<QString, std::unique_ptr<ScriptedFtpServer>> servers;
  QList<std::shared_ptr<FTPSessionClass>> started;
  QStringList rowChanges;  // "row<TAB>id<TAB>text", as the headless mode prints them

  void SetUp() override {
    AppFixture::SetUp();
    ASSERT_TRUE(local.isValid());
    SetAll({"127.0.0.1", "", "u", "p"});
    MainWindow::SetNewSessionHook([this](FTPSessionClass& session) {
      auto found = servers.find(session.ID);
      ASSERT_NE(found, servers.end()) << "no server for session " << session.ID.toStdString();
      EXPECT_EQ(session.CommandPort, 21);  // the app's own choice, before the test's
      session.CommandPort = found->second->Port();
      started.append(session.shared_from_this());
    });
    MainWindow::SetRowObserver(
        [this](int, const QString& id, const QString& text) { rowChanges << "row\t" + id + "\t" + text; });
  }
  void TearDown() override {
    for (const auto& session : started) session->EndFTPSession(QString());  // earlier drops' too
    started.clear();
    AppFixture::TearDown();
    servers.clear();
  }

  MainWindow& Window() { return *MainWindow::Instance(); }
  Listbox& Rows() { return *Window().StatusListBox; }
  QStringList Column(int column) {
    QStringList cells;
    for (int row = 0; row < Rows().ListCount(); ++row) cells.append(Rows().Cell(row, column));
    return cells;
  }
  ScriptedFtpServer& Server(const QString& id, const QString& pass = {}) {
    auto& slot = servers[id];
    if (!slot) slot = std::make_unique<ScriptedFtpServer>();
    if (!pass.isEmpty())
      slot->OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line(pass)});
    return *slot;
  }
  // Session `id` uploads `file`: into `folder` where one is given, which a folder's upload
  // (`dir`) makes first where `make`.
  void Put(const QString& id, const QString& file, const QString& folder = {}, bool dir = false, bool make = false,
           QList<ScriptAction> quit = {Line("221 bye")}) {
    ScriptedFtpServer& server = Server(id, "230 in");
    if (make) server.Expect("CWD " + folder, {Line("550 no")}).Expect("MKD " + folder, {Line("257 made")});
    if (!folder.isEmpty()) server.Expect("CWD " + folder, {Line("250 ok")});
    server.Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()})
        .Expect("STOR " + file, {Line("150 go"), DataReceiveAll(), Line("226 done")});
    if (dir) server.Expect("PASV", {OpenPassive()}).Expect("CDUP", {Line("250 ok")});
    server.Expect("QUIT", quit);
  }
  // A local file (made with the given bytes) by its path.
  QString Local(const QString& name, const QByteArray& bytes = "x") {
    WriteFile(local.filePath(name), bytes);
    return local.filePath(name);
  }
  void Drop(const QStringList& paths) {
    QList<QUrl> urls;
    for (const QString& path : paths) urls.append(path.startsWith('/') ? QUrl::fromLocalFile(path) : QUrl(path));
    Window().DropUrls(urls);
  }
  // Waits until every row shows an end, then every server must have had its script.
  void Ends(const QStringList& ends) {
    const bool ended = RunUntil([&] {
      for (const QString& text : Column(2))
        if (!Globals::Session.first()->SuccessfulMessage(text) && !text.startsWith("Error")) return false;
      return true;
    });
    for (const auto& [id, server] : servers) EXPECT_EQ(server->Mismatches(), QStringList()) << id.toStdString();
    ASSERT_TRUE(ended) << Column(2).join(" | ").toStdString() << "\n" << rowChanges.join('\n').toStdString();
    EXPECT_EQ(Column(2), ends);
    EXPECT_EQ(Column(1), QStringList(ends.size(), "File Transfer"));
  }
};

TEST_F(DropTest, FilesAndFoldersGetARowAndASessionEachAndArriveOnTheServers) {
  Globals::ServerPath = "/up";
  Local("tree/f", "file f");
  Local("tree/empty", "");  // left out of a folder
  Put("0", "one.txt", "/up");
  Put("1", "two words.bin", "/up");
  Put("2", "f", "/up/tree", true, true);  // a folder goes under the server path with its own name
  // Links that are not local files are left out.
  Drop({Local("one.txt", "first file"), "https://example.org/a", Local("two words.bin", QByteArray(5000, 'x')),
        local.filePath("tree")});
  EXPECT_EQ(Column(0), (QStringList{"0", "1", "2"}));
  // All three connect at once: each server has its client before any session has ended.
  ASSERT_TRUE(RunUntil([&] { return servers["0"]->ConnectionCount() && servers["1"]->ConnectionCount() &&
                                    servers["2"]->ConnectionCount(); }));
  Ends({"File Transfer Complete.", "File Transfer Complete.", "Directory Transfer Complete."});
  EXPECT_EQ(servers["0"]->ReceivedData(), QList<QByteArray>{"first file"});
  EXPECT_EQ(servers["1"]->ReceivedData(), QList<QByteArray>{QByteArray(5000, 'x')});
  EXPECT_EQ(servers["2"]->ReceivedData(), QList<QByteArray>{"file f"});
  // The reports reached the rows in between, progress included: the first and the newest figure.
  EXPECT_TRUE(rowChanges.contains("row\t1\tTransferring: 2 KB") && rowChanges.contains("row\t1\tTransferring: 5 KB"))
      << rowChanges.join('\n').toStdString();

  // With an empty server path a folder goes to the root and a file needs no CWD; Cancel
  // after the end replaces the result.
  Globals::ServerPath.clear();
  Local("d/x");
  servers.clear();
  Put("0", "x", "/d", true);
  Put("1", "f");
  Drop({local.filePath("d"), Local("f")});
  Ends({"Directory Transfer Complete.", "File Transfer Complete."});
  Rows().SetListIndex(0);
  Window().CancelPushButton->click();
  EXPECT_EQ(Column(2), (QStringList{"Session cancelled by user.", "File Transfer Complete."}));

  // A server path ending in "/" is taken as it is.
  Globals::ServerPath = "/up/";
  servers.clear();
  Server("0", "230 in").Expect("CWD /up//d", {Line("550 no such directory")}).Expect("MKD /up//d", {Line("550 refused")});
  Drop({local.filePath("d")});
  Ends({"Error: 550 refused\n"});
}

TEST_F(DropTest, AReportDuringTheYieldOfAnotherStaysNewestAndDoesNotYieldAgain) {
  // The yield runs at most once a millisecond, hence the pauses before each report.
  // The newer report of "0" is delivered by the yield after row 0, before the older one
  // reaches row 1: it stays, and only a later report replaces it.
  Rows().AddRow("1");
  Rows().AddRow("0");
  QMetaObject::invokeMethod(&Window(), [&] { Window().UpdateStatus("0", "File Transfer Complete."); }, Qt::QueuedConnection);
  QThread::msleep(5);
  Window().UpdateStatus("0", "FTP Session Complete.");
  EXPECT_EQ(rowChanges, QStringList{"row\t0\tFile Transfer Complete."});
  Window().UpdateStatus("0", "Session cancelled by user.");
  EXPECT_EQ(Column(2), (QStringList{"", "Session cancelled by user."}));

  // A report inside the yield of another leaves the next event to the outer yield instead
  // of nesting another loop.
  bool laterEventRan = false, ranInsideNestedReport = true;
  QMetaObject::invokeMethod(&Window(), [&] {
    QMetaObject::invokeMethod(&Window(), [&] { laterEventRan = true; }, Qt::QueuedConnection);
    QThread::msleep(5);
    Window().UpdateStatus("0", "inner");
    ranInsideNestedReport = laterEventRan;
  }, Qt::QueuedConnection);
  QThread::msleep(5);
  Window().UpdateStatus("1", "outer");
  EXPECT_EQ(Column(2), (QStringList{"outer", "inner"}));
  EXPECT_FALSE(ranInsideNestedReport);
  EXPECT_TRUE(RunUntil([&] { return laterEventRan; }, 1000));
}

TEST_F(DropTest, StatusReceiverWritesIntoEveryRowOfItsSessionAndEachEndHidesTheIndicator) {
  for (const QString id : {"0", "1", "0"}) Rows().AddRow(id);
  auto first = std::make_shared<FTPSessionClass>("0");
  auto second = std::make_shared<FTPSessionClass>("1");
  FTPStatusClass& one = *first->FTPStatusInstance;
  FTPStatusClass& two = *second->FTPStatusInstance;
  one.Status_FTP("Send UserID");
  EXPECT_EQ(Column(1), (QStringList{"File Transfer", "", "File Transfer"}));
  EXPECT_EQ(rowChanges, (QStringList{"row\t0\tSend UserID", "row\t0\tSend UserID"}));
  two.Progress_FTP(1048577);
  one.Response_FTP("220 hidden dialogue");
  std::make_shared<FTPSessionClass>("9")->FTPStatusInstance->Status_FTP("into nothing");
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Transferring: 1.0 MB", "Send UserID"}));
  EXPECT_EQ(rowChanges.size(), 3);
  // One indicator for all: the first end hides it; the other session goes on writing into its row.
  Window().ChasingArrows1->setVisible(true);
  one.Successful_FTP("File Transfer Complete.");
  EXPECT_TRUE(Window().ChasingArrows1->isHidden());
  // A burst of progress reaches the row at most once an interval, ending with the newest
  // figure; a report of another kind shows a figure still waiting first.
  rowChanges.clear();
  for (int bytes = 1; bytes <= 1000; ++bytes) two.Progress_FTP(bytes);
  EXPECT_TRUE(RunUntil([&] { return Rows().Cell(1, 2) == "Transferring: 1000 bytes"; }, 5000));
  EXPECT_LT(rowChanges.size(), 10);
  rowChanges.clear();
  two.Progress_FTP(8);
  two.Status_FTP("Send file");
  RunFor(3 * AppStatus::kProgressIntervalMs);
  EXPECT_EQ(rowChanges, (QStringList{"row\t1\tTransferring: 8 bytes", "row\t1\tSend file"}));
  Window().ChasingArrows1->setVisible(true);
  second->ServerAddress = "ftp.example.org";
  two.Error_FTP("Error: 104");
  EXPECT_TRUE(Window().ChasingArrows1->isHidden());
  // A socket failure keeps its text; what it means is the row's tooltip.
  EXPECT_EQ(Column(2), (QStringList{"File Transfer Complete.", "Error: 104", "File Transfer Complete."}));
  EXPECT_EQ((QStringList{Rows().RowToolTip(0), Rows().RowToolTip(1)}),
            (QStringList{"", "ftp.example.org:21 refused the connection: is an FTP server listening on port 21 "
                             "there? Check the address, the port, and any firewall"}));
  two.Status_FTP("Send UserID");  // a new attempt takes the hint away
  EXPECT_EQ(Rows().RowToolTip(1), "");
}

TEST_F(DropTest, CancelEndsTheSelectedSessionOnlyWithoutAbor) {
  Server("0").OnConnect({Line("220 ready")});
  Server("1").OnConnect({Line("220 ready")});
  Drop({Local("a"), Local("b")});
  ASSERT_TRUE(RunUntil([&] { return Column(2) == QStringList{"Send UserID", "Send UserID"}; }));
  // Without a selected row: a beep, and nothing is cancelled.
  Window().CancelPushButton->click();
  EXPECT_EQ(beeps, 1);
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Send UserID"}));
  Rows().SetListIndex(1);
  Window().CancelPushButton->click();
  EXPECT_EQ(beeps, 1);
  EXPECT_EQ(Column(2), (QStringList{"Send UserID", "Session cancelled by user."}));
  EXPECT_EQ(Globals::Session[1]->CommandSocket, nullptr);
  EXPECT_NE(Globals::Session[0]->CommandSocket, nullptr);
  EXPECT_TRUE(RunUntil([&] { return !servers["1"]->ClientConnected(); }));
  EXPECT_TRUE(servers["0"]->ClientConnected());
  EXPECT_EQ(servers["1"]->Commands(), QStringList{"USER u"});  // no ABOR
  // A second Cancel on the row repeats the message.
  Rows().SetCell(1, 2, "changed");
  Window().CancelPushButton->click();
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

TEST_F(DropTest, TheWindowsDropEventStartsTheSameDropAndTheIndicatorTurns) {
  Window().show();
  Server("0").OnConnect({Line("220 ready")});  // then silent: the session waits at USER
  // Sends a drag's enter and drop; gives whether each was accepted.
  const auto dragAndDrop = [&](QMimeData& data) {
    QDragEnterEvent enter(QPoint(250, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QDropEvent drop(QPointF(250, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    enter.ignore();
    drop.ignore();
    QCoreApplication::sendEvent(&Window(), &enter);
    QCoreApplication::sendEvent(&Window(), &drop);
    return std::pair(enter.isAccepted(), drop.isAccepted());
  };
  QMimeData text, links, files;
  text.setText("just text");
  links.setUrls({QUrl("https://example.org/file.txt"), QUrl("mailto:x@example.org")});
  files.setUrls({QUrl::fromLocalFile(Local("a"))});
  EXPECT_EQ(dragAndDrop(text), std::pair(false, false));
  // Links are taken, but a drop without local files empties the list and says so.
  Rows().AddRow("0");
  Globals::Session.append(std::make_shared<FTPSessionClass>("0"));
  EXPECT_EQ(dragAndDrop(links), std::pair(true, true));
  ASSERT_TRUE(RunUntil([&] { return !messages.isEmpty(); }));
  EXPECT_EQ(messages, QStringList{"Not Folder or File."});
  EXPECT_EQ(Rows().ListCount(), 0);
  EXPECT_TRUE(Globals::Session.isEmpty());
  EXPECT_TRUE(Window().ChasingArrows1->isHidden());

  EXPECT_EQ(dragAndDrop(files), std::pair(true, true));
  ASSERT_TRUE(RunUntil([&] { return Column(2) == QStringList{"Send UserID"}; }));
  EXPECT_EQ(Globals::Session.size(), 1);
  // The busy indicator shows and turns while the session runs.
  ChasingArrows& arrows = *Window().ChasingArrows1;
  ASSERT_FALSE(arrows.isHidden());
  EXPECT_TRUE(arrows.Animating());
  const int angle = arrows.Angle();
  EXPECT_TRUE(RunUntil([&] { return arrows.Angle() != angle; }, 2000));
  arrows.setVisible(false);
  EXPECT_FALSE(arrows.Animating());
}

TEST_F(DropTest, HeadlessRunnerPrintsEscapedRowsAndFinishesWhenEverySessionHasEnded) {
  MainWindow::SetRowObserver(nullptr);
  // Session "0" is refused, then succeeds; "1" ends later than "0": its server holds back
  // the answer to QUIT. A failed session leaves its message in its own row, and no dialog.
  for (bool refused : {true, false}) {
    SCOPED_TRACE(refused ? "refused" : "both succeed");
    servers.clear();
    if (refused) Server("0", "530 no\tway");
    else Put("0", "a");
    Put("1", "b", {}, false, false, {Delay(300), Line("221 bye")});
    const QStringList ends{refused ? "Error: 530 no\tway\n" : "File Transfer Complete.", "File Transfer Complete."};
    QStringList lines;
    DropRunner runner([&](const QString& line) { lines.append(line); });
    int finishedCalls = 0;
    runner.SetFinishedCallback([&] {
      ++finishedCalls;
      EXPECT_EQ(Column(2), ends);
    });
    runner.Start({Local("a"), Local("b")});
    ASSERT_TRUE(RunUntil([&] { return runner.Finished(); }));
    EXPECT_EQ(finishedCalls, 1);
    EXPECT_EQ(runner.ExitStatus(), refused ? 1 : 0);
    EXPECT_EQ(lines.first(), "row\t0\tStart Put File Sequence");
    // Control characters of the text are escaped, so each change stays one line.
    EXPECT_TRUE(lines.contains(refused ? "row\t0\tError: 530 no\\tway\\n" : "row\t0\tFile Transfer Complete."))
        << lines.join('\n').toStdString();
    EXPECT_EQ(lines.last(), "row\t1\tFile Transfer Complete.");
  }
  EXPECT_TRUE(messages.isEmpty());
  EXPECT_EQ(DropRunner::EscapeText("plain text äö"), "plain text äö");
  EXPECT_EQ(DropRunner::EscapeText("a\\b\r\n\tc\x01\x7f"), "a\\\\b\\r\\n\\tc\\x01\\x7f");
}

}  // namespace
}  // namespace velmar::test
