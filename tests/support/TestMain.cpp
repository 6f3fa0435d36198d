// main() of every test executable: one QCoreApplication (the one event loop), then GoogleTest.
#include <QCoreApplication>
#include <gtest/gtest.h>

#include <csignal>

int main(int argc, char** argv) {
  // A write to a connection the peer has reset must come back as an error, not kill the test.
  std::signal(SIGPIPE, SIG_IGN);
  ::testing::InitGoogleTest(&argc, argv);
  QCoreApplication app(argc, argv);
  const int result = RUN_ALL_TESTS();
  // Objects released with deleteLater() outside any handler are only freed here; freeing them
  // before exit keeps LeakSanitizer's report clean.
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  return result;
}
