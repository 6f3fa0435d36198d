// main() of every test executable: one QCoreApplication (the one event loop), then GoogleTest.
#include "platform/SocketCore.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <csignal>

namespace {

// After each test: connections a test left open (a logged-on session keeps itself alive
// through them) are closed, and what that released is freed, so that no session of one
// test lives on into the next or past the end of the program.
class CloseConnectionsAfterEachTest : public ::testing::EmptyTestEventListener {
  void OnTestEnd(const ::testing::TestInfo&) override {
    velmar::SocketCore::CloseAll();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
};

}  // namespace

int main(int argc, char** argv) {
  // A write to a connection the peer has reset must come back as an error, not kill the test.
  std::signal(SIGPIPE, SIG_IGN);
  ::testing::InitGoogleTest(&argc, argv);
  QCoreApplication app(argc, argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new CloseConnectionsAfterEachTest);
  const int result = RUN_ALL_TESTS();
  velmar::SocketCore::CloseAll();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  return result;
}
