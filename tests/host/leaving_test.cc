#include <sys/wait.h>

#include "tests/host/played_game.h"

namespace zln {
namespace {

// Far more than leaving takes, far less than any time-out of the network.
constexpr auto kPatience = std::chrono::seconds(5);

// How a game may be left, and the status that shows it went as it was meant to.
struct Way {
  const char* name;
  const char* command;
  int exitCode;
  int signal;
};

void PrintTo(const Way& way, std::ostream* stream) { *stream << way.name; }

class LeavingTest : public PlayedGameTest, public testing::WithParamInterface<Way> {
 protected:
  // Leaves with requests under way and says whether it went well.
  void leave() {
    const Way way = GetParam();
    game->send(way.command);
    const int status = game->waitForEnd(kPatience);
    ASSERT_NE(-1, status) << "It hangs.";
    if (way.signal != 0) {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == way.signal) << game->errors();
    } else {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == way.exitCode) << game->errors();
    }
  }
};

TEST_P(LeavingTest, EndsAtOnceWhileTheServerNeverAnswersTheHandshake) {
  server.setFault(ConnectionFault::kNoHandshake);
  launchAndStart();
  for (int call = 0; call < 5; ++call) tell("banner n 1");

  leave();
}

TEST_P(LeavingTest, EndsAtOnceWhileReportsAreBeingDelivered) {
  for (int round = 0; round < 10; ++round) {
    launchAndStart();
    for (int call = 0; call < 30; ++call) tell("banner n 1");

    leave();
  }
}

std::string nameOf(const testing::TestParamInfo<Way>& way) { return way.param.name; }

INSTANTIATE_TEST_SUITE_P(Ways, LeavingTest,
                         testing::Values(Way{"Exit", "exit", 7, 0},
                                         Way{"ExitAtOnce", "_exit", 7, 0},
                                         Way{"Return", "return", 7, 0},
                                         Way{"QuickExit", "quick_exit", 7, 0},
                                         Way{"Abort", "abort", 0, SIGABRT}),
                         nameOf);

}  // namespace
}  // namespace zln
