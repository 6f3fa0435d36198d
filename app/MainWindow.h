#pragma once
// The app's one working window: drop files and folders on it, and each item is uploaded by
// a session of its own, with a row of status in the list. One button cancels the selected
// session, one opens the server settings, one ends the program.
#include <QList>
#include <QString>
#include <QUrl>
#include <QWidget>
#include <functional>
#include <memory>

class QLabel;
class QPushButton;

namespace velmar {

class ChasingArrows;
class DragItem;
class FileType;
class FTPSessionClass;
class Listbox;

class MainWindow : public QWidget {
public:
  // The existing window, or a new one (not shown) when there is none: reports of running
  // sessions always find a window to write into.
  static MainWindow* Instance();
  // The existing window or nullptr.
  static MainWindow* Existing();

  MainWindow();
  ~MainWindow() override;

  // Controls, in creation order (which is also the tab order).
  QLabel* StaticText1 = nullptr;
  ChasingArrows* ChasingArrows1 = nullptr;
  QPushButton* CancelPushButton = nullptr;
  Listbox* StatusListBox = nullptr;
  QPushButton* ServerPushButton = nullptr;
  QPushButton* CancelPushButton1 = nullptr;

  // Column 1 becomes "File Transfer" and column 2 text, in every row whose ID is id.
  // Writes `text` into every row of session `id`, with `hint` (what an error means) as the
  // rows' tooltip; an empty hint takes an older one away.
  void UpdateStatus(const QString& id, const QString& text, const QString& hint = QString());
  // The drop: one session and one row per item of obj. The action is not looked at.
  void Event_DropObject(DragItem& obj, int action);
  // A drop of these URLs (local files and folders; other entries are ignored), as the drop
  // event makes it; exceptions stop here and are reported.
  void DropUrls(const QList<QUrl>& urls);

  void CancelPushButton_Action();
  void ServerPushButton_Action();
  void CancelPushButton1_Action();
  void Event_Open();
  void Event_Close();

  // Drops of files of this type are taken ("any": every local file and folder).
  void AcceptFileDrop(const QString& typeName);

  // Called with every row that UpdateStatus changes (headless mode prints them).
  using RowObserver = std::function<void(int row, const QString& id, const QString& text)>;
  static void SetRowObserver(RowObserver observer);
  // Called with each new session of a drop just before it starts (tests point it at their
  // own server); none by default, so sessions keep the defaults of their constructor.
  using NewSessionHook = std::function<void(FTPSessionClass& session)>;
  static void SetNewSessionHook(NewSessionHook hook);

protected:
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragMoveEvent(QDragMoveEvent* event) override;
  void dropEvent(QDropEvent* event) override;

private:
  QList<std::shared_ptr<FileType>> acceptedTypes_;
  // Numbers the calls of UpdateStatus, so that rows can tell newer reports from older ones.
  quint64 reportCount_ = 0;
  // How many UpdateStatus yields are running further up the stack.
  int updateDepth_ = 0;
};

}  // namespace velmar
