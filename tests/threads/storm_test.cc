// The finished library in a host whose eight threads call all of its functions, against a server
// that takes, refuses and drops what it gets. What it is really for shows under the sanitizers,
// which end the host with a bad status.
//
// ZLN_STORM_SECONDS tells how long the storm lasts, ZLN_STORM_SEED which one it is.

#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tests/host/played_game.h"

namespace zln {
namespace {

constexpr char kSeconds[] = "3";
constexpr char kSeed[] = "1";
constexpr auto kPatience = std::chrono::seconds(100);

std::string given(const char* variable, const char* otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : text;
}

class StormTest : public PlayedGameTest {
 protected:
  // Each way in its turn.
  ServerReply answerTo(const ReceivedRequest& request) {
    if (!isReport(request)) {
      return replyWith(200, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":2})");
    }
    switch (kindly_ ? 0 : turn_++ % 7) {
      case 4:
        return replyWith(200, R"({"success":false})");
      case 5:
        return replyWith(200, R"({"success":false,"errorIsPermanent":true,"error":"no"})");
      case 6:
        return rawReply("HTTP/1.1 200 OK\r\n", ServerReply::End::kCut);
      default:
        return successReply();
    }
  }

  bool somethingIsOwed() const {
    return contentsOf(reportsFile()).find("<array/>") == std::string::npos;
  }

  std::atomic<bool> kindly_{false};

 private:
  std::atomic<unsigned> turn_{0};
};

TEST_F(StormTest, AllFunctionsOnEightThreadsLeaveNothingBehind) {
  const std::string seed = given("ZLN_STORM_SEED", kSeed);
  std::printf("seed %s\n", seed.c_str());
  server.answer([this](const ReceivedRequest& request) { return answerTo(request); });
  launch();

  // The answer to a command must come within a minute.
  for (int rest = std::stoi(given("ZLN_STORM_SECONDS", kSeconds)), round = 0; rest > 0; ++round) {
    const int seconds = std::min(rest, 20);
    tell("storm " + std::to_string(std::stoi(seed) + round) + " " + std::to_string(seconds));
    rest -= seconds;
  }

  // Whatever the storm has left is delivered once the server takes everything.
  kindly_ = true;
  const auto end = std::chrono::steady_clock::now() + kPatience;
  do {
    tell("foreground");
    EXPECT_TRUE(server.waitUntilDeserted());
    waitUntilAtRest();
  } while (somethingIsOwed() && std::chrono::steady_clock::now() < end);
  EXPECT_FALSE(somethingIsOwed());
  std::printf("%zu requests came\n", server.requests().size());
  game->send("end");
  const int status = game->waitForEnd(kPatience);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << "\n" << game->errors();
  EXPECT_EQ("", game->errors());
}

}  // namespace
}  // namespace zln
