#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "tests/host/leaving_blocked_port.h"
#include "tests/host/played_game.h"

namespace zln {
namespace {

// How long a host may take beyond its own leaving. The default is far more than it takes on a busy
// machine, and far less than any time-out of the network.
constexpr double kLimitMilliseconds = 2000;
// How often each is tried.
constexpr int kRounds = 3;
constexpr int kRequestsAtOnce = 3;
constexpr auto kPatience = std::chrono::seconds(30);

// A number that whoever measures gives instead.
double given(const char* variable, double otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtod(text, nullptr);
}

double millisecondsOfClock() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The times that a host took to leave.
class Times {
 public:
  void add(double milliseconds) {
    values_.insert(std::upper_bound(values_.begin(), values_.end(), milliseconds), milliseconds);
  }
  double median() const { return values_[values_.size() / 2]; }
  double longest() const { return values_.back(); }

 private:
  std::vector<double> values_;
};

// How a host may be left, and the status that shows it went as it was meant to.
struct Way {
  const char* name;
  const char* command;
  int exitCode;
  int signal;
};

constexpr Way kWays[] = {
    {"Exit", "exit", 7, 0},
    {"Return", "return", 7, 0},
    {"ExitAtOnce", "_exit", 7, 0},
    {"QuickExit", "quick_exit", 7, 0},
    {"Abort", "abort", 0, SIGABRT},
    {"UncaughtException", "exception", 0, SIGABRT},
    {"Signal", "signal", 0, SIGTERM},
    {"ExitOnAnotherThread", "thread", 7, 0},
    {"CallsInAnExitHandler", "atexit", 7, 0},
    {"CallsInAQuickExitHandler", "at_quick_exit", 7, 0},
    {"CallsInAStaticDestructor", "destructor", 7, 0},
};

void PrintTo(const Way& way, std::ostream* stream) { *stream << way.name; }

class LeavingTest : public PlayedGameTest, public testing::WithParamInterface<Way> {
 protected:
  // Leaves hosts as soon as `awaitRequests` has returned, and beside them hosts that do not use the
  // library.
  void leaveTimeAndAgain(const char* network, const std::function<void()>& awaitRequests) {
    Times bare;
    Times withLibrary;
    const int rounds = static_cast<int>(given("ZLN_LEAVING_ROUNDS", kRounds));
    for (int round = 0; round < rounds; ++round) {
      launchHost();
      bare.add(timeToLeave());
      launchHost();
      tell("begin");
      awaitRequests();
      withLibrary.add(timeToLeave());
    }
    std::printf("| %s | %s | %.1f | %.1f | %.1f | %.1f |\n", GetParam().name, network,
                bare.median(), bare.longest(), withLibrary.median(), withLibrary.longest());
    EXPECT_LT(withLibrary.longest() - bare.longest(),
              given("ZLN_LEAVING_LIMIT_MS", kLimitMilliseconds));
  }

  bool waitForConnections(int count) const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (server.connections() < count) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::yield();
    }
    return true;
  }

  // Has the host open OpenSSL before the library does.
  bool hostHasTls = false;

 private:
  void launchHost() {
    // What a host leaves in memory when it is left in the middle of its work is no leak.
    environment["ASAN_OPTIONS"] = "detect_leaks=0";
    environment["TSAN_OPTIONS"] = "atexit_sleep_ms=0";
    game = std::make_unique<ChildProcess>(ZLN_LEAVING_HOST, environment, home.path() + "/errors");
    if (hostHasTls) tell("tls");
  }

  // In milliseconds.
  double timeToLeave() {
    const double begin = std::stod(tell(GetParam().command)) / 1e6;
    const int status = game->waitForEnd(kPatience);
    const double end = millisecondsOfClock();
    checkStatus(status);
    return end - begin;
  }

  void checkStatus(int status) {
    const Way way = GetParam();
    if (status == -1) {
      ADD_FAILURE() << "It hangs.";
    } else if (way.signal != 0) {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == way.signal)
          << "status " << status << "\n"
          << game->errors();
    } else {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == way.exitCode)
          << "status " << status << "\n"
          << game->errors();
    }
  }
};

TEST_P(LeavingTest, EndsAtOnceWhileTheServerNeverAnswersTheHandshake) {
  server.setFault(ConnectionFault::kNoHandshake);
  int connections = 0;

  leaveTimeAndAgain("accepts, never answers", [&] {
    connections += kRequestsAtOnce;
    EXPECT_TRUE(waitForConnections(connections));
    connections = server.connections();
  });
}

TEST_P(LeavingTest, EndsAtOnceWhileThePortNeverAccepts) {
  const BlockedPort port;
  environment["https_proxy"] = port.url();

  leaveTimeAndAgain("never accepts", [&] { EXPECT_TRUE(port.awaitOthers(kRequestsAtOnce)); });
}

TEST_P(LeavingTest, EndsAtOnceWhileReportsAreBeingDelivered) {
  std::size_t requests = 0;

  leaveTimeAndAgain("delivers", [&] {
    EXPECT_TRUE(server.waitForRequests(requests + 1));
    requests = server.requests().size();
  });
}

// OpenSSL is then taken down at the end, which must not meet the threads that use it.
TEST_P(LeavingTest, EndsAtOnceInAHostThatHasOpenedTlsItself) {
  hostHasTls = true;
  std::size_t requests = 0;

  leaveTimeAndAgain("delivers, beside TLS of the host", [&] {
    EXPECT_TRUE(server.waitForRequests(requests + 1));
    requests = server.requests().size();
  });
}

std::string nameOf(const testing::TestParamInfo<Way>& way) { return way.param.name; }

INSTANTIATE_TEST_SUITE_P(Ways, LeavingTest, testing::ValuesIn(kWays), nameOf);

}  // namespace
}  // namespace zln
