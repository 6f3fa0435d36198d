#pragma once
// The headless drop: the main window's drop of given paths, each change of a status row
// written out as a line, and the end once every session of the drop has reported its end.
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>

class QWidget;

namespace velmar {

class CommandLine;
class FTPSessionClass;

class DropRunner {
public:
  using Output = std::function<void(const QString& line)>;

  // out gets "row<TAB>id<TAB>text" for each row change, text escaped (EscapeText).
  explicit DropRunner(Output out);
  ~DropRunner();
  DropRunner(const DropRunner&) = delete;
  DropRunner& operator=(const DropRunner&) = delete;

  // Performs the drop in the main window and returns when the drop loop is done; sessions
  // go on in the event loop. Finished() may already be true.
  void Start(const QStringList& paths);
  // True once every session of the drop has reported its end.
  bool Finished() const { return finished_; }
  // Taken when the drop finished: 0 when every row ended in a success text, 1 otherwise
  // (also for a drop that made no row).
  int ExitStatus() const { return exitStatus_; }
  // Called once, when Finished() becomes true.
  void SetFinishedCallback(std::function<void()> callback) { onFinished_ = std::move(callback); }

  // The whole headless run: Start, the event loop until the end (plus --linger), the
  // screenshots of the options; returns the exit status.
  int Run(const CommandLine& options);

  // Control characters made visible, so that every report stays on one line.
  static QString EscapeText(const QString& text);
  // The settings that a drop needs and that are empty, e.g. "Server, Password"; empty
  // when all are set.
  static QString MissingSettings();
  // Saves a picture of the widget (PNG); false with a message on stderr when that fails.
  static bool SaveScreenshot(QWidget& widget, const QString& path);

private:
  void SessionEnded(FTPSessionClass* session);
  void CheckFinished();
  int RowsStatus() const;

  Output out_;
  QSet<FTPSessionClass*> ended_;
  bool started_ = false;
  bool finished_ = false;
  int exitStatus_ = 1;
  bool picturesFailed_ = false;
  std::function<void()> onFinished_;
};

}  // namespace velmar
