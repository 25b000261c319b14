// exit() waits for a transfer that is inside TLS, from the first one on.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/posix/exit_gate.h"
#include "platform/posix/http_curl.h"

namespace zln {
namespace {

std::atomic<bool> isInside{false};
std::atomic<bool> exitHasBegun{false};
std::atomic<bool> isLeaving{false};

void visit() {
  const ExitGate::Visit inside;
  isInside = true;
  isInside.notify_all();
  exitHasBegun.wait(false);
  isLeaving = true;
}

// Exit handlers run in the reverse order of their registration.
void exitDuringAVisit() {
  std::atexit([] { _exit(isLeaving ? 0 : 1); });
  new HttpClientCurl(*new ThreadPool, [] { return std::string("Game/1"); });
  std::atexit([] {
    exitHasBegun = true;
    exitHasBegun.notify_all();
  });
  std::thread(&visit).detach();
  isInside.wait(false);
  std::exit(2);
}

TEST(ExitTest, WaitsForAVisitBeforeAnythingHasBeenSent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");

  EXPECT_EXIT(exitDuringAVisit(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zln
