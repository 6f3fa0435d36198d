#pragma once
// The shell's application object. It counts how deeply event deliveries are nested, so
// that the shell runs script lines only between events: a session that lets the loop
// run from inside one of its handlers (a local walk, the TLS wait) is not interrupted by
// the next script line. Implemented in main.cpp.
#include <QCoreApplication>

namespace velmar {

class ShellApplication : public QCoreApplication {
public:
  ShellApplication(int& argc, char** argv);

  bool notify(QObject* receiver, QEvent* event) override;

  // 1 inside an event handler called by the main loop, more inside a nested one.
  static int EventDepth() { return depth_; }

private:
  static int depth_;
};

}  // namespace velmar
