#pragma once
// Edits the four server settings of Globals. Opens modally; a closed window is gone, and
// the next opening makes a new one filled from Globals, so an edit given up leaves no trace.
#include <QDialog>

class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace velmar {

class PreferencesWindow : public QDialog {
public:
  // The open window, or a new one filled from Globals.
  static PreferencesWindow* Instance();
  // The open window or nullptr.
  static PreferencesWindow* Existing();
  // Shows the window modally; returns when it has closed.
  static void ShowModal();

  PreferencesWindow();
  ~PreferencesWindow() override;

  // Controls, in creation order (which is also the tab order).
  QGroupBox* GroupBox1 = nullptr;
  QLineEdit* ServerEditField = nullptr;
  QLabel* StaticText1 = nullptr;
  QLineEdit* ServerPathEditField = nullptr;
  QLabel* StaticText2 = nullptr;
  QLineEdit* LoginIDEditField = nullptr;
  QLabel* StaticText3 = nullptr;
  QLineEdit* PasswordEditField = nullptr;
  QLabel* StaticText4 = nullptr;
  QPushButton* SavePushButton = nullptr;
  QPushButton* CancelPushButton = nullptr;

  void Event_Open();
  void SavePushButton_Action();
  void CancelPushButton_Action();

  void done(int result) override;
};

}  // namespace velmar
