#include "app/MainWindow.h"

#include "app/AppHooks.h"
#include "app/ChasingArrows.h"
#include "app/DragItem.h"
#include "app/FileTypes.h"
#include "app/Globals.h"
#include "app/Listbox.h"
#include "app/PreferencesWindow.h"
#include "platform/EventLoop.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "platform/MsgBox.h"
#include "platform/Strings.h"
#include "session/FTPSessionClass.h"

#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QTimer>

namespace velmar {

namespace {

QPointer<MainWindow>& InstanceSlot() {
  static QPointer<MainWindow> window;
  return window;
}

MainWindow::RowObserver& RowObserverSlot() {
  static MainWindow::RowObserver observer;
  return observer;
}

MainWindow::NewSessionHook& NewSessionHookSlot() {
  static MainWindow::NewSessionHook hook;
  return hook;
}

const QString kFileTransfer = QStringLiteral("File Transfer");

}  // namespace

MainWindow* MainWindow::Instance() {
  if (!InstanceSlot()) InstanceSlot() = new MainWindow;
  return InstanceSlot();
}

MainWindow* MainWindow::Existing() { return InstanceSlot(); }

void MainWindow::SetRowObserver(RowObserver observer) { RowObserverSlot() = std::move(observer); }

void MainWindow::SetNewSessionHook(NewSessionHook hook) { NewSessionHookSlot() = std::move(hook); }

MainWindow::MainWindow() {
  // A closed window is gone; the accessor makes a new one when it is needed again.
  setAttribute(Qt::WA_DeleteOnClose);
  setObjectName(QStringLiteral("MainWindow"));
  setWindowTitle(QStringLiteral("Thornquill Upload"));
  resize(501, 322);
  setMinimumSize(64, 64);
  setMaximumSize(32000, 32000);

  // Fixed places: no control follows the window's size.
  StaticText1 = new QLabel(QStringLiteral("Drag File/Folder on this Window"), this);
  StaticText1->setObjectName(QStringLiteral("StaticText1"));
  StaticText1->setGeometry(136, 238, 345, 22);
  StaticText1->setAlignment(Qt::AlignLeft | Qt::AlignTop);

  ChasingArrows1 = new ChasingArrows(this);
  ChasingArrows1->setObjectName(QStringLiteral("ChasingArrows1"));
  ChasingArrows1->setGeometry(108, 238, 16, 16);
  ChasingArrows1->setVisible(false);

  CancelPushButton = new QPushButton(QStringLiteral("Cancel"), this);
  CancelPushButton->setObjectName(QStringLiteral("CancelPushButton"));
  CancelPushButton->setGeometry(20, 234, 69, 24);
  CancelPushButton->setAutoDefault(false);

  StatusListBox = new Listbox(this, {QStringLiteral("ID"), QStringLiteral("File"), QStringLiteral("Status")},
                              QStringLiteral("10%,*"));
  StatusListBox->setObjectName(QStringLiteral("StatusListBox"));
  StatusListBox->setGeometry(20, 15, 461, 201);
  StatusListBox->LayoutColumns(StatusListBox->contentsRect().width());

  ServerPushButton = new QPushButton(QStringLiteral("Server Setup"), this);
  ServerPushButton->setObjectName(QStringLiteral("ServerPushButton"));
  ServerPushButton->setGeometry(20, 279, 110, 23);
  ServerPushButton->setAutoDefault(false);

  CancelPushButton1 = new QPushButton(QStringLiteral("Finish"), this);
  CancelPushButton1->setObjectName(QStringLiteral("CancelPushButton1"));
  CancelPushButton1->setGeometry(412, 279, 69, 23);
  CancelPushButton1->setAutoDefault(false);

  // Tab order = creation order (the labels and the indicator take no focus).
  setTabOrder(CancelPushButton, StatusListBox);
  setTabOrder(StatusListBox, ServerPushButton);
  setTabOrder(ServerPushButton, CancelPushButton1);

  QObject::connect(CancelPushButton, &QPushButton::clicked, this,
                   [this] { RunGuarded([this] { CancelPushButton_Action(); }); });
  QObject::connect(ServerPushButton, &QPushButton::clicked, this,
                   [this] { RunGuarded([this] { ServerPushButton_Action(); }); });
  QObject::connect(CancelPushButton1, &QPushButton::clicked, this,
                   [this] { RunGuarded([this] { CancelPushButton1_Action(); }); });

  // Both "Cancel" and "Finish" answer the cancel key, but one key can press only one
  // button: Escape presses "Cancel". "Finish" would end the program at once and cut off
  // every running transfer, too much for a key that is easily hit by mistake.
  auto* cancelKey = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  cancelKey->setContext(Qt::WindowShortcut);
  QObject::connect(cancelKey, &QShortcut::activated, CancelPushButton, &QPushButton::click);

  Event_Open();
}

MainWindow::~MainWindow() {
  if (InstanceSlot() == this) InstanceSlot() = nullptr;
}

void MainWindow::Event_Open() { AcceptFileDrop(QStringLiteral("any")); }

void MainWindow::AcceptFileDrop(const QString& typeName) {
  const std::shared_ptr<FileType> type = FileTypes::Find(typeName);
  if (!type) return;
  if (!acceptedTypes_.contains(type)) acceptedTypes_.append(type);
  setAcceptDrops(true);
}

void MainWindow::UpdateStatus(const QString& id, const QString& text, const QString& hint) {
  // The yield after each row lets other reports in, and a later report of the same session
  // may be written while this one is still on its way down the list: each row remembers
  // the report it shows, and an older one never replaces a newer one.
  const quint64 report = ++reportCount_;
  // The count is read anew each round: a drop during a yield may empty the list.
  for (int row = 0; row < StatusListBox->ListCount(); ++row) {
    if (Same(StatusListBox->Cell(row, 0), id) && StatusListBox->RowTag(row) < report) {
      StatusListBox->SetRowTag(row, report);
      StatusListBox->SetCell(row, 1, kFileTransfer);
      StatusListBox->SetCell(row, 2, text);
      StatusListBox->SetRowToolTip(row, hint);
      if (RowObserverSlot()) RowObserverSlot()(row, id, text);
    }
    // Only the outermost report yields: a report that arrives during a yield runs inside
    // it, and letting it yield again would nest event loops one report deeper each time,
    // without bound while hundreds of sessions keep reporting.
    if (updateDepth_ == 0) {
      ++updateDepth_;
      Yield();
      --updateDepth_;
    }
  }
}

void MainWindow::Event_DropObject(DragItem& obj, int /*action*/) {
  StatusListBox->DeleteAllRows();
  // Earlier sessions are let go, not ended: their connections keep them running.
  Globals::Session.clear();
  if (!obj.FolderItemAvailable()) {
    MsgBox(QStringLiteral("Not Folder or File."));
    return;
  }
  do {
    const std::shared_ptr<FolderItem> item = obj.FolderItem();
    ChasingArrows1->setVisible(true);
    const qsizetype n = Globals::Session.size() - 1 + 1;
    auto session = std::make_shared<FTPSessionClass>(Str(static_cast<double>(n)));
    Globals::Session.append(session);
    StatusListBox->AddRow(session->ID);
    session->SetLoginInfo(Globals::Server, Globals::LoginID, Globals::Password);
    const bool folder = Deref(item, "the dropped item").Directory();
    if (folder)
      session->SetServerDirectoryPathName(Globals::ServerPath + QStringLiteral("/") + item->Name());
    else
      session->SetServerDirectoryPathName(Globals::ServerPath);
    session->SetLocalFolderItem(item);
    session->SetStatusReporting(true);
    session->PassiveMode = true;
    if (NewSessionHookSlot()) NewSessionHookSlot()(*session);
    if (folder)
      session->StartPutDir();
    else
      session->StartPutFile();
    Yield();
  } while (obj.NextItem());
}

void MainWindow::DropUrls(const QList<QUrl>& urls) {
  DragItem obj(urls, acceptedTypes_.isEmpty() ? nullptr : acceptedTypes_.first());
  RunGuarded([&] { Event_DropObject(obj, Qt::CopyAction); });
}

void MainWindow::CancelPushButton_Action() {
  const int index = StatusListBox->ListIndex();
  if (index == -1) {
    AppHooks::Beep();
    return;
  }
  const qsizetype n = ToInt32(Val(StatusListBox->Cell(index, 0)));
  // Held here: the report of the end yields, and a drop meanwhile would let it go.
  const std::shared_ptr<FTPSessionClass> session = At(Globals::Session, n);
  session->EndFTPSession(QStringLiteral("Session cancelled by user."));
}

void MainWindow::ServerPushButton_Action() {
  hide();
  PreferencesWindow::ShowModal();
  show();
}

void MainWindow::CancelPushButton1_Action() { close(); }

void MainWindow::Event_Close() { AppHooks::Quit(0); }

void MainWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  Event_Close();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  // Any drag with links is taken, so that one without a local file gets its message.
  if (acceptDrops() && event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dragMoveEvent(QDragMoveEvent* event) {
  if (acceptDrops() && event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  if (!event->mimeData()->hasUrls()) return;
  const QList<QUrl> urls = event->mimeData()->urls();
  event->acceptProposedAction();
  // The drop runs after the drag has been answered: the source is not kept waiting while
  // sessions start, and a message box does not open inside the drag protocol.
  QTimer::singleShot(0, this, [this, urls] { DropUrls(urls); });
}

}  // namespace velmar
