// main() of the app's widget tests: a QApplication on the offscreen platform (widgets need
// it; the shared test main makes only a QCoreApplication), then GoogleTest.
#include "app/AppStatus.h"
#include "app/FileTypes.h"

#include <QApplication>
#include <gtest/gtest.h>

#include <csignal>

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  ::testing::InitGoogleTest(&argc, argv);
  // Always offscreen: the tests must not depend on a display, nor open windows on one.
  qputenv("QT_QPA_PLATFORM", "offscreen");
  velmar::FileTypes::Setup();
  QApplication app(argc, argv);
  QApplication::setQuitOnLastWindowClosed(false);
  velmar::AppStatus::Install();
  const int result = RUN_ALL_TESTS();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  return result;
}
