// Both windows as laid out: sizes, titles, controls with their places and texts, creation
// and tab order, default and cancel buttons, the masked password field, the list's columns.
#include "AppFixture.h"

#include "app/ChasingArrows.h"
#include "app/Listbox.h"

#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

namespace velmar::test {
namespace {

struct Control {
  const char* name;
  const char* className;
  QRect place;  // window coordinates
  QString text;  // a group box's title, the text of other controls that have one
};

// The named controls under `parent` in the order in which they were created (Qt keeps the
// children of a widget in creation order, and findChildren walks them depth first), or in
// the order in which Tab visits them once round the window's focus chain.
QStringList CreationOrder(const QWidget& parent, const QStringList& names) {
  QStringList order;
  for (const QObject* child : parent.findChildren<QObject*>())
    if (names.contains(child->objectName())) order.append(child->objectName());
  return order;
}
QStringList TabOrder(QWidget& window, const QStringList& names) {
  QStringList order;
  QWidget* widget = &window;
  for (int guard = 0; guard < 200 && (widget = widget->nextInFocusChain()) != &window; ++guard)
    if (names.contains(widget->objectName()) && (widget->focusPolicy() & Qt::TabFocus)) order.append(widget->objectName());
  return order;
}

class LayoutTest : public AppFixture {
protected:
  // Keys go to the active window only.
  static bool ShownAndActive(QWidget& window) {
    window.show();
    window.activateWindow();
    return QTest::qWaitForWindowActive(&window);
  }
  // Title, size (both windows share the limits), the controls in the order of their
  // creation, and the tab order; gives the controls' names.
  QStringList CheckWindow(QWidget& window, const QString& title, QSize size, const QList<Control>& controls,
                          const QStringList& tabOrder) {
    EXPECT_EQ(window.windowTitle(), title);
    EXPECT_EQ(window.size(), size);
    EXPECT_EQ(window.minimumSize(), QSize(64, 64));
    EXPECT_EQ(window.maximumSize(), QSize(32000, 32000));
    QStringList names;
    for (const Control& expected : controls) {
      SCOPED_TRACE(expected.name);
      names << expected.name;
      auto* control = window.findChild<QWidget*>(QLatin1String(expected.name));
      EXPECT_NE(control, nullptr);
      if (!control) continue;
      EXPECT_TRUE(control->inherits(expected.className)) << control->metaObject()->className();
      EXPECT_EQ(QRect(control->mapTo(&window, QPoint(0, 0)), control->size()), expected.place);
      EXPECT_EQ(control->property(control->inherits("QGroupBox") ? "title" : "text").toString(), expected.text);
    }
    EXPECT_EQ(CreationOrder(window, names), names);
    EXPECT_EQ(TabOrder(window, names), tabOrder);
    return names;
  }
};

TEST_F(LayoutTest, MainWindowHasItsSizeTitleControlsAndAListOfThreeColumnsTenPercentThenShared) {
  MainWindow& window = *MainWindow::Instance();
  CheckWindow(window, "Thornquill Upload", {501, 322}, {
      {"StaticText1", "QLabel", {136, 238, 345, 22}, "Drag File/Folder on this Window"},
      {"ChasingArrows1", "QWidget", {108, 238, 16, 16}, ""},
      {"CancelPushButton", "QPushButton", {20, 234, 69, 24}, "Cancel"},
      {"StatusListBox", "QTreeWidget", {20, 15, 461, 201}, ""},
      {"ServerPushButton", "QPushButton", {20, 279, 110, 23}, "Server Setup"},
      {"CancelPushButton1", "QPushButton", {412, 279, 69, 23}, "Finish"},
  }, {"CancelPushButton", "StatusListBox", "ServerPushButton", "CancelPushButton1"});
  // The members, of the app's own classes, are the named controls.
  EXPECT_EQ(window.findChild<QWidget*>("StatusListBox"), static_cast<QWidget*>(window.StatusListBox));
  EXPECT_EQ(window.findChild<QWidget*>("ChasingArrows1"), static_cast<QWidget*>(window.ChasingArrows1));

  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  Listbox& list = *window.StatusListBox;
  ASSERT_EQ(list.columnCount(), 3);
  EXPECT_EQ((QStringList{list.headerItem()->text(0), list.headerItem()->text(1), list.headerItem()->text(2)}),
            (QStringList{"ID", "File", "Status"}));
  const int width = list.viewport()->width();
  ASSERT_GT(width, 300);
  EXPECT_NEAR(list.columnWidth(0), width * 0.10, 1.0);
  EXPECT_NEAR(list.columnWidth(1), list.columnWidth(2), 1.0);
  EXPECT_EQ(list.columnWidth(0) + list.columnWidth(1) + list.columnWidth(2), width);
  // Other forms: 50 fixed, 100 (25 %), then 250 shared 2:1 between "2*" and the column
  // without an entry.
  Listbox other(nullptr, {"a", "b", "c", "d"}, "50,25%,2*");
  other.LayoutColumns(400);
  EXPECT_EQ((QList<int>{other.columnWidth(0), other.columnWidth(1), other.columnWidth(2), other.columnWidth(3)}),
            (QList<int>{50, 100, 166, 84}));
}

TEST_F(LayoutTest, PreferencesWindowHasItsSizeTitleAndControls) {
  PreferencesWindow& window = *PreferencesWindow::Instance();
  EXPECT_TRUE(window.isModal());
  // The directory field comes second in tab order although it stands last on screen.
  const QStringList names = CheckWindow(window, "Thornquill FTP Server Preferences", {484, 270}, {
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
  }, {"ServerEditField", "ServerPathEditField", "LoginIDEditField", "PasswordEditField", "SavePushButton",
      "CancelPushButton"});
  // All but the group box and the two buttons lie inside the group box.
  EXPECT_EQ(CreationOrder(*window.GroupBox1, names), names.mid(1, 8));
  EXPECT_EQ(window.PasswordEditField->echoMode(), QLineEdit::Password);
  EXPECT_EQ(window.ServerEditField->echoMode(), QLineEdit::Normal);
  EXPECT_TRUE(window.SavePushButton->isDefault());
  EXPECT_FALSE(window.CancelPushButton->isDefault());
}

TEST_F(LayoutTest, EscapePressesCancelNotFinishAndReturnPressesSave) {
  MainWindow& window = *MainWindow::Instance();
  ASSERT_TRUE(ShownAndActive(window));
  int clicks[2] = {0, 0};
  QObject::connect(window.CancelPushButton, &QPushButton::clicked, [&] { ++clicks[0]; });
  QObject::connect(window.CancelPushButton1, &QPushButton::clicked, [&] { ++clicks[1]; });
  QTest::keyClick(window.StatusListBox, Qt::Key_Escape);
  EXPECT_EQ(clicks[0], 1);
  EXPECT_EQ(clicks[1], 0);
  EXPECT_TRUE(quits.isEmpty());
  // In the preferences: Escape cancels what was typed, Return saves it; either closes the
  // window, so that the next opening is a new one.
  Globals::Server = "old.example";
  for (const auto key : {Qt::Key_Escape, Qt::Key_Return}) {
    PreferencesWindow* preferences = PreferencesWindow::Instance();
    EXPECT_EQ(preferences->ServerEditField->text(), "old.example");
    ASSERT_TRUE(ShownAndActive(*preferences));
    preferences->ServerEditField->setFocus();
    preferences->ServerEditField->setText(key == Qt::Key_Escape ? "typed.example" : "new.example");
    QTest::keyClick(preferences->ServerEditField, key);
    EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
  }
  EXPECT_EQ(Globals::Server, "new.example");
}

}  // namespace
}  // namespace velmar::test
