// Both windows as laid out: sizes, titles, controls with their places and texts, creation
// and tab order, default and cancel buttons, the masked password.
#include "AppFixture.h"

#include "app/ChasingArrows.h"
#include "app/Listbox.h"

#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

namespace velmar::test {
namespace {

struct Control {
  const char* name;
  const char* className;
  QRect place;  // window coordinates
  QString text;
};

// The window-relative place of a control, whatever it sits in.
QRect PlaceInWindow(const QWidget* control) {
  return QRect(control->mapTo(control->window(), QPoint(0, 0)), control->size());
}

QString TextOf(const QWidget* control) {
  if (auto* label = qobject_cast<const QLabel*>(control)) return label->text();
  if (auto* button = qobject_cast<const QPushButton*>(control)) return button->text();
  if (auto* box = qobject_cast<const QGroupBox*>(control)) return box->title();
  if (auto* field = qobject_cast<const QLineEdit*>(control)) return field->text();
  return {};
}

// The named controls of the window in the order in which they were created: Qt keeps the
// children of a widget in creation order.
QStringList CreationOrder(const QWidget& window, const QStringList& names) {
  QStringList order;
  std::function<void(const QObject*)> walk = [&](const QObject* parent) {
    for (const QObject* child : parent->children()) {
      if (names.contains(child->objectName())) order.append(child->objectName());
      if (child->isWidgetType() && !names.contains(child->objectName())) continue;
      walk(child);
    }
  };
  walk(&window);
  return order;
}

// The named controls that Tab visits, in order, from the first named one that takes focus.
QStringList TabOrder(QWidget& window, const QStringList& names) {
  QStringList order;
  QWidget* start = nullptr;
  for (const QString& name : names) {
    auto* widget = window.findChild<QWidget*>(name);
    if (widget && (widget->focusPolicy() & Qt::TabFocus)) {
      start = widget;
      break;
    }
  }
  if (!start) return order;
  QWidget* widget = start;
  for (int guard = 0; guard < 200; ++guard) {
    if (names.contains(widget->objectName()) && (widget->focusPolicy() & Qt::TabFocus)) {
      if (order.contains(widget->objectName())) break;
      order.append(widget->objectName());
    }
    widget = widget->nextInFocusChain();
  }
  return order;
}

class LayoutTest : public AppFixture {
protected:
  void CheckControls(QWidget& window, const QList<Control>& controls) {
    for (const Control& expected : controls) {
      SCOPED_TRACE(expected.name);
      auto* control = window.findChild<QWidget*>(QLatin1String(expected.name));
      ASSERT_NE(control, nullptr);
      EXPECT_TRUE(control->inherits(expected.className)) << control->metaObject()->className();
      EXPECT_EQ(PlaceInWindow(control), expected.place);
      EXPECT_EQ(TextOf(control), expected.text);
    }
  }
};

TEST_F(LayoutTest, MainWindowHasItsSizeTitleAndControls) {
  MainWindow& window = *MainWindow::Instance();
  EXPECT_EQ(window.windowTitle(), "Thornquill Upload");
  EXPECT_EQ(window.size(), QSize(501, 322));
  EXPECT_EQ(window.minimumSize(), QSize(64, 64));
  EXPECT_EQ(window.maximumSize(), QSize(32000, 32000));
  EXPECT_TRUE(window.isWindow());
  EXPECT_TRUE(window.acceptDrops());
  CheckControls(window, {
                            {"StaticText1", "QLabel", {136, 238, 345, 22}, "Drag File/Folder on this Window"},
                            {"ChasingArrows1", "QWidget", {108, 238, 16, 16}, ""},
                            {"CancelPushButton", "QPushButton", {20, 234, 69, 24}, "Cancel"},
                            {"StatusListBox", "QTreeWidget", {20, 15, 461, 201}, ""},
                            {"ServerPushButton", "QPushButton", {20, 279, 110, 23}, "Server Setup"},
                            {"CancelPushButton1", "QPushButton", {412, 279, 69, 23}, "Finish"},
                        });
  // The members are the named controls.
  EXPECT_EQ(window.StatusListBox->objectName(), "StatusListBox");
  EXPECT_EQ(window.ChasingArrows1->objectName(), "ChasingArrows1");
  EXPECT_TRUE(window.ChasingArrows1->isHidden());
  EXPECT_NE(dynamic_cast<ChasingArrows*>(window.findChild<QWidget*>("ChasingArrows1")), nullptr);
  EXPECT_NE(dynamic_cast<Listbox*>(window.findChild<QWidget*>("StatusListBox")), nullptr);

  const QStringList names{"StaticText1",   "ChasingArrows1",   "CancelPushButton",
                          "StatusListBox", "ServerPushButton", "CancelPushButton1"};
  EXPECT_EQ(CreationOrder(window, names), names);
  EXPECT_EQ(TabOrder(window, names),
            (QStringList{"CancelPushButton", "StatusListBox", "ServerPushButton", "CancelPushButton1"}));
}

TEST_F(LayoutTest, StatusListHasThreeHeadedColumnsTenPercentThenShared) {
  MainWindow& window = *MainWindow::Instance();
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  Listbox& list = *window.StatusListBox;
  ASSERT_EQ(list.columnCount(), 3);
  EXPECT_EQ(list.headerItem()->text(0), "ID");
  EXPECT_EQ(list.headerItem()->text(1), "File");
  EXPECT_EQ(list.headerItem()->text(2), "Status");
  EXPECT_EQ(list.ColumnWidths(), "10%,*");
  const int width = list.viewport()->width();
  ASSERT_GT(width, 300);
  EXPECT_NEAR(list.columnWidth(0), width * 0.10, 1.0);
  EXPECT_NEAR(list.columnWidth(1), list.columnWidth(2), 1.0);
  EXPECT_EQ(list.columnWidth(0) + list.columnWidth(1) + list.columnWidth(2), width);
  EXPECT_EQ(list.ListIndex(), -1);
  EXPECT_EQ(list.ListCount(), 0);
}

TEST_F(LayoutTest, ColumnWidthsOfOtherFormsShareTheRest) {
  Listbox list(nullptr, {"a", "b", "c", "d"}, "50,25%,2*");
  list.LayoutColumns(400);
  // 50 fixed, 100 (25 %), then 250 shared 2:1 between "2*" and the column without an entry.
  EXPECT_EQ(list.columnWidth(0), 50);
  EXPECT_EQ(list.columnWidth(1), 100);
  EXPECT_EQ(list.columnWidth(2), 166);
  EXPECT_EQ(list.columnWidth(3), 84);
}

TEST_F(LayoutTest, PreferencesWindowHasItsSizeTitleAndControls) {
  PreferencesWindow& window = *PreferencesWindow::Instance();
  EXPECT_EQ(window.windowTitle(), "Thornquill FTP Server Preferences");
  EXPECT_EQ(window.size(), QSize(484, 270));
  EXPECT_EQ(window.minimumSize(), QSize(64, 64));
  EXPECT_EQ(window.maximumSize(), QSize(32000, 32000));
  EXPECT_TRUE(window.isModal());
  CheckControls(window, {
                            {"GroupBox1", "QGroupBox", {20, 14, 444, 204}, "Server Details"},
                            {"ServerEditField", "QLineEdit", {125, 44, 317, 22}, ""},
                            {"StaticText1", "QLabel", {40, 44, 73, 20}, "FTP Server:"},
                            {"ServerPathEditField", "QLineEdit", {161, 169, 281, 22}, ""},
                            {"StaticText2", "QLabel", {40, 169, 101, 20}, "Server Directory:"},
                            {"LoginIDEditField", "QLineEdit", {125, 84, 317, 22}, ""},
                            {"StaticText3", "QLabel", {40, 84, 67, 20}, "Username:"},
                            {"PasswordEditField", "QLineEdit", {125, 124, 317, 22}, ""},
                            {"StaticText4", "QLabel", {40, 124, 59, 20}, "Password:"},
                            {"SavePushButton", "QPushButton", {374, 230, 90, 22}, "Save"},
                            {"CancelPushButton", "QPushButton", {272, 230, 90, 22}, "Cancel"},
                        });
  // All but the two buttons lie inside the group box.
  for (QWidget* inside : {static_cast<QWidget*>(window.ServerEditField), static_cast<QWidget*>(window.StaticText1),
                          static_cast<QWidget*>(window.ServerPathEditField), static_cast<QWidget*>(window.StaticText2),
                          static_cast<QWidget*>(window.LoginIDEditField), static_cast<QWidget*>(window.StaticText3),
                          static_cast<QWidget*>(window.PasswordEditField), static_cast<QWidget*>(window.StaticText4)})
    EXPECT_EQ(inside->parentWidget(), window.GroupBox1) << inside->objectName().toStdString();
  EXPECT_EQ(window.SavePushButton->parentWidget(), &window);
  EXPECT_EQ(window.CancelPushButton->parentWidget(), &window);

  EXPECT_EQ(window.PasswordEditField->echoMode(), QLineEdit::Password);
  EXPECT_EQ(window.ServerEditField->echoMode(), QLineEdit::Normal);
  EXPECT_TRUE(window.SavePushButton->isDefault());
  EXPECT_FALSE(window.CancelPushButton->isDefault());

  const QStringList names{"GroupBox1",        "ServerEditField", "StaticText1",       "ServerPathEditField",
                          "StaticText2",      "LoginIDEditField", "StaticText3",      "PasswordEditField",
                          "StaticText4",      "SavePushButton",  "CancelPushButton"};
  EXPECT_EQ(CreationOrder(window, names), names);
  // The directory field comes second in tab order although it stands last on screen.
  EXPECT_EQ(TabOrder(window, names), (QStringList{"ServerEditField", "ServerPathEditField", "LoginIDEditField",
                                                  "PasswordEditField", "SavePushButton", "CancelPushButton"}));
}

TEST_F(LayoutTest, MaskedPasswordDoesNotShowItsText) {
  Globals::Password = "s3cret";
  PreferencesWindow& window = *PreferencesWindow::Instance();
  EXPECT_EQ(window.PasswordEditField->text(), "s3cret");
  EXPECT_NE(window.PasswordEditField->displayText(), "s3cret");
  EXPECT_EQ(window.PasswordEditField->displayText().size(), 6);
}

TEST_F(LayoutTest, EscapeInTheMainWindowPressesCancelNotFinish) {
  MainWindow& window = *MainWindow::Instance();
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  int cancelClicks = 0;
  int finishClicks = 0;
  QObject::connect(window.CancelPushButton, &QPushButton::clicked, [&] { ++cancelClicks; });
  QObject::connect(window.CancelPushButton1, &QPushButton::clicked, [&] { ++finishClicks; });
  QTest::keyClick(window.StatusListBox, Qt::Key_Escape);
  EXPECT_EQ(cancelClicks, 1);
  EXPECT_EQ(finishClicks, 0);
  EXPECT_EQ(beeps, 1);  // Cancel without a selected row
  EXPECT_TRUE(quits.isEmpty());
}

TEST_F(LayoutTest, EscapeInThePreferencesWindowCancelsAndReturnPressesSave) {
  Globals::Server = "old.example";
  PreferencesWindow* window = PreferencesWindow::Instance();
  window->show();
  window->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(window));
  int cancelClicks = 0;
  QObject::connect(window->CancelPushButton, &QPushButton::clicked, [&] { ++cancelClicks; });
  window->ServerEditField->setFocus();
  window->ServerEditField->setText("typed.example");
  QTest::keyClick(window->ServerEditField, Qt::Key_Escape);
  EXPECT_EQ(cancelClicks, 1);
  EXPECT_EQ(Globals::Server, "old.example");
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);  // closed: the next opening is a new window

  window = PreferencesWindow::Instance();
  EXPECT_EQ(window->ServerEditField->text(), "old.example");
  window->show();
  window->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(window));
  window->ServerEditField->setFocus();
  window->ServerEditField->setText("new.example");
  QTest::keyClick(window->ServerEditField, Qt::Key_Return);
  EXPECT_EQ(Globals::Server, "new.example");
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
}

}  // namespace
}  // namespace velmar::test
