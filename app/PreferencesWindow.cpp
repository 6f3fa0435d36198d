#include "app/PreferencesWindow.h"

#include "app/AppHooks.h"
#include "app/Globals.h"
#include "platform/Exceptions.h"

#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>

namespace velmar {

namespace {

QPointer<PreferencesWindow>& InstanceSlot() {
  static QPointer<PreferencesWindow> window;
  return window;
}

// Places a control at window coordinates, whichever control it sits in.
void Place(QWidget* control, int left, int top, int width, int height) {
  QWidget* parent = control->parentWidget();
  const QPoint origin = parent->isWindow() ? QPoint(0, 0) : parent->mapTo(parent->window(), QPoint(0, 0));
  control->setGeometry(left - origin.x(), top - origin.y(), width, height);
}

template <class Control>
Control* Make(QWidget* parent, const char* name) {
  auto* control = new Control(parent);
  control->setObjectName(QLatin1String(name));
  return control;
}

}  // namespace

PreferencesWindow* PreferencesWindow::Instance() {
  if (!InstanceSlot()) InstanceSlot() = new PreferencesWindow;
  return InstanceSlot();
}

PreferencesWindow* PreferencesWindow::Existing() { return InstanceSlot(); }

void PreferencesWindow::ShowModal() { AppHooks::ShowModal(*Instance()); }

PreferencesWindow::PreferencesWindow() {
  setAttribute(Qt::WA_DeleteOnClose);
  setObjectName(QStringLiteral("PreferencesWindow"));
  setWindowTitle(QStringLiteral("Thornquill FTP Server Preferences"));
  setModal(true);
  resize(484, 270);
  setMinimumSize(64, 64);
  setMaximumSize(32000, 32000);
  setSizeGripEnabled(false);

  GroupBox1 = Make<QGroupBox>(this, "GroupBox1");
  GroupBox1->setTitle(QStringLiteral("Server Details"));
  Place(GroupBox1, 20, 14, 444, 204);

  // All but the two buttons lie inside the group box; places are given in window coordinates.
  ServerEditField = Make<QLineEdit>(GroupBox1, "ServerEditField");
  Place(ServerEditField, 125, 44, 317, 22);
  StaticText1 = Make<QLabel>(GroupBox1, "StaticText1");
  StaticText1->setText(QStringLiteral("FTP Server:"));
  Place(StaticText1, 40, 44, 73, 20);
  ServerPathEditField = Make<QLineEdit>(GroupBox1, "ServerPathEditField");
  Place(ServerPathEditField, 161, 169, 281, 22);
  StaticText2 = Make<QLabel>(GroupBox1, "StaticText2");
  StaticText2->setText(QStringLiteral("Server Directory:"));
  Place(StaticText2, 40, 169, 101, 20);
  LoginIDEditField = Make<QLineEdit>(GroupBox1, "LoginIDEditField");
  Place(LoginIDEditField, 125, 84, 317, 22);
  StaticText3 = Make<QLabel>(GroupBox1, "StaticText3");
  StaticText3->setText(QStringLiteral("Username:"));
  Place(StaticText3, 40, 84, 67, 20);
  PasswordEditField = Make<QLineEdit>(GroupBox1, "PasswordEditField");
  PasswordEditField->setEchoMode(QLineEdit::Password);
  Place(PasswordEditField, 125, 124, 317, 22);
  StaticText4 = Make<QLabel>(GroupBox1, "StaticText4");
  StaticText4->setText(QStringLiteral("Password:"));
  Place(StaticText4, 40, 124, 59, 20);

  SavePushButton = Make<QPushButton>(this, "SavePushButton");
  SavePushButton->setText(QStringLiteral("Save"));
  Place(SavePushButton, 374, 230, 90, 22);
  SavePushButton->setDefault(true);
  CancelPushButton = Make<QPushButton>(this, "CancelPushButton");
  CancelPushButton->setText(QStringLiteral("Cancel"));
  Place(CancelPushButton, 272, 230, 90, 22);
  CancelPushButton->setAutoDefault(false);

  // Tab order = creation order: server, directory, user name, password, Save, Cancel. On
  // screen the directory field stands last; the window was laid out that way.
  setTabOrder(ServerEditField, ServerPathEditField);
  setTabOrder(ServerPathEditField, LoginIDEditField);
  setTabOrder(LoginIDEditField, PasswordEditField);
  setTabOrder(PasswordEditField, SavePushButton);
  setTabOrder(SavePushButton, CancelPushButton);

  QObject::connect(SavePushButton, &QPushButton::clicked, this,
                   [this] { RunGuarded([this] { SavePushButton_Action(); }); });
  QObject::connect(CancelPushButton, &QPushButton::clicked, this,
                   [this] { RunGuarded([this] { CancelPushButton_Action(); }); });
  // The cancel key presses the cancel button (instead of the dialog's own reject).
  auto* cancelKey = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  cancelKey->setContext(Qt::WindowShortcut);
  QObject::connect(cancelKey, &QShortcut::activated, CancelPushButton, &QPushButton::click);

  Event_Open();
}

PreferencesWindow::~PreferencesWindow() {
  if (InstanceSlot() == this) InstanceSlot() = nullptr;
}

void PreferencesWindow::Event_Open() {
  ServerEditField->setText(Globals::Server);
  ServerPathEditField->setText(Globals::ServerPath);
  LoginIDEditField->setText(Globals::LoginID);
  PasswordEditField->setText(Globals::Password);
}

void PreferencesWindow::SavePushButton_Action() {
  // Stored as typed: no trimming, no check that a field is filled.
  Globals::Server = ServerEditField->text();
  Globals::ServerPath = ServerPathEditField->text();
  Globals::LoginID = LoginIDEditField->text();
  Globals::Password = PasswordEditField->text();
  Globals::SavePreferences();
  // Closes also when saving failed: the values stay in memory.
  accept();
}

void PreferencesWindow::CancelPushButton_Action() { reject(); }

void PreferencesWindow::done(int result) {
  // Every way of closing ends here: from now on the accessor makes a new window.
  if (InstanceSlot() == this) InstanceSlot() = nullptr;
  QDialog::done(result);
}

}  // namespace velmar
