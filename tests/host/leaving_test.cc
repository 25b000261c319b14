#include <sys/wait.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <set>
#include <thread>

#include "tests/host/played_game.h"
#include "tests/support/full_port.h"

namespace zln {
namespace {

// How long a host may take beyond its own leaving. The default is far more than it takes on a busy
// machine, and far less than any time-out of the network.
constexpr double kLimitMilliseconds = 2000;
// How often each is tried.
constexpr int kRounds = 3;
constexpr int kRequestsAtOnce = 3;

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

double median(const std::multiset<double>& values) {
  return *std::next(values.begin(), static_cast<std::ptrdiff_t>(values.size() / 2));
}

// How many connections to the port are being made, as the system's list tells.
int connecting(std::uint16_t port) {
  char wanted[32];
  std::snprintf(wanted, sizeof wanted, " 0100007F:%04X 02 ", port);
  const std::string list = contentsOf("/proc/net/tcp");
  int count = 0;
  for (std::size_t at = 0; (at = list.find(wanted, at)) != std::string::npos; ++at) ++count;
  return count;
}

bool awaitConnecting(std::uint16_t port, int count) {
  const auto end = std::chrono::steady_clock::now() + kSafetyLimit;
  while (connecting(port) < count) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

constexpr int kReturned = W_EXITCODE(7, 0);

// How a host may be left, and the status that shows it went as it was meant to.
struct Way {
  const char* name;
  const char* command;
  int status;
};

constexpr Way kWays[] = {
    {"Exit", "exit", kReturned},
    {"Return", "return", kReturned},
    {"ExitAtOnce", "_exit", kReturned},
    {"QuickExit", "quick_exit", kReturned},
    {"Abort", "abort", SIGABRT},
    {"UncaughtException", "exception", SIGABRT},
    {"Signal", "signal", SIGTERM},
    {"ExitOnAnotherThread", "thread", kReturned},
    {"CallsInAnExitHandler", "atexit", kReturned},
    {"CallsInAQuickExitHandler", "at_quick_exit", kReturned},
    {"CallsInAStaticDestructor", "destructor", kReturned},
};

void PrintTo(const Way& way, std::ostream* stream) { *stream << way.name; }

class LeavingTest : public PlayedGameTest, public testing::WithParamInterface<Way> {
 protected:
  using Await = std::function<void(HttpsServer& server)>;

  // Leaves hosts as soon as `awaitRequests` has returned, and beside them hosts that do not use the
  // library. Each host has a server of its own: requests of the one before may still be coming.
  void leaveTimeAndAgain(const char* network, const Await& awaitRequests) {
    std::multiset<double> bare;  // In milliseconds.
    std::multiset<double> withLibrary;
    const int rounds = static_cast<int>(given("ZLN_LEAVING_ROUNDS", kRounds));
    for (int round = 0; round < rounds; ++round) {
      launchHost();
      bare.insert(timeToLeave());
      HttpsServer ownServer;
      if (isSilent) ownServer.play({stall()});
      const ConnectProxy ownProxy(ownServer.port());
      environment["SSL_CERT_FILE"] = ownServer.caFile();
      environment["https_proxy"] = otherProxy.empty() ? ownProxy.url() : otherProxy;
      launchHost();
      tell("begin");
      awaitRequests(ownServer);
      withLibrary.insert(timeToLeave());
      expectThatRequestsKeepToSchemas(ownServer);
    }
    std::printf("| %s | %s | %.1f | %.1f | %.1f | %.1f |\n", GetParam().name, network, median(bare),
                *bare.rbegin(), median(withLibrary), *withLibrary.rbegin());
    EXPECT_LT(*withLibrary.rbegin() - *bare.rbegin(),
              given("ZLN_LEAVING_LIMIT_MS", kLimitMilliseconds));
  }

  static void awaitRequest(HttpsServer& server) { EXPECT_TRUE(server.waitForRequests(1)); }

  // Whether the server never answers, or another proxy is in its place.
  bool isSilent = false;
  std::string otherProxy;
  // Has the host open OpenSSL before the library does.
  bool hostHasTls = false;

 private:
  void launchHost() {
    // What a host leaves in memory when it is left in the middle of its work is no leak.
    environment["ASAN_OPTIONS"] = "detect_leaks=0";
    environment["TSAN_OPTIONS"] = "atexit_sleep_ms=0";
    launch(ZLN_LEAVING_HOST);
    if (hostHasTls) tell("tls");
  }

  // In milliseconds.
  double timeToLeave() {
    const double begin = std::stod(tell(GetParam().command)) / 1e6;
    const int status = game->waitForEnd();
    const double end = millisecondsOfClock();
    EXPECT_EQ(GetParam().status, status & ~WCOREFLAG) << game->errors();
    return end - begin;
  }
};

TEST_P(LeavingTest, EndsAtOnceWhileTheServerNeverAnswersTheHandshake) {
  isSilent = true;

  leaveTimeAndAgain("accepts, never answers", [](HttpsServer& silent) {
    EXPECT_TRUE(silent.waitForConnections(kRequestsAtOnce));
  });
}

TEST_P(LeavingTest, EndsAtOnceWhileThePortNeverAccepts) {
  const FullPort port;
  otherProxy = "http://127.0.0.1:" + std::to_string(port.port());

  leaveTimeAndAgain("never accepts", [&](HttpsServer&) {
    EXPECT_TRUE(awaitConnecting(port.port(), kRequestsAtOnce));
  });
}

TEST_P(LeavingTest, EndsAtOnceWhileReportsAreBeingDelivered) {
  leaveTimeAndAgain("delivers", &awaitRequest);
}

// OpenSSL is then taken down at the end, which must not meet the threads that use it.
TEST_P(LeavingTest, EndsAtOnceInAHostThatHasOpenedTlsItself) {
  hostHasTls = true;

  leaveTimeAndAgain("delivers, beside TLS of the host", &awaitRequest);
}

std::string nameOf(const testing::TestParamInfo<Way>& way) { return way.param.name; }

INSTANTIATE_TEST_SUITE_P(Ways, LeavingTest, testing::ValuesIn(kWays), nameOf);

}  // namespace
}  // namespace zln
