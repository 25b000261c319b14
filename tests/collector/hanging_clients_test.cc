// Clients that say nothing, or nearly nothing, and stay.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "collector/http_status.h"
#include "tests/collector/raw_client.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

using testing::StartsWith;

constexpr std::size_t kMostGames = 256;
constexpr std::size_t kMostOperators = 128;

std::vector<OwnedSocket> connectMany(std::size_t count, int port, std::string_view firstBytes) {
  std::vector<OwnedSocket> sockets;
  for (std::size_t i = 0; i < count; ++i) sockets.push_back(connectTo(port, firstBytes));
  return sockets;
}

// Waits for the other side to end the connection, by an end or an error.
bool isEnded(int socket) {
  char bytes[256];
  ssize_t got = 1;
  while (got > 0) got = ::recv(socket, bytes, sizeof bytes, 0);
  return got == 0 || errno == ECONNRESET;
}

bool isEnded(const OwnedSocket& socket) { return isEnded(socket.get()); }

// The answer to a report, asked for until it is this one.
std::string answerOnce(const RunningCollector& collector, const std::string& expected) {
  std::string answer;
  const auto end = std::chrono::steady_clock::now() + kSoon;
  while (answer != expected && std::chrono::steady_clock::now() < end) {
    answer = collector.answerTo("/session", adAttempt());
  }
  return answer;
}

TEST(HangingClientsTest, DoNotStopGames) {
  RunningCollector collector;
  const auto silent = connectMany(32, collector.gamePort(), "");
  const auto slow = connectMany(32, collector.gamePort(), "\x16\x03\x01");

  EXPECT_EQ(kSuccess, collector.answerTo("/session", adAttempt()));
}

TEST(HangingClientsTest, DoNotStopOperators) {
  RunningCollector collector;
  const auto silent = connectMany(32, collector.pagePort(), "");
  const auto slow = connectMany(32, collector.pagePort(), "GET /api/sta");

  EXPECT_TRUE(collector.page()->Get("/api/status"));
}

TEST(HangingClientsTest, DoNotHoldTheEndUp) {
  RunningCollector collector;
  const auto silent = connectMany(20, collector.gamePort(), "");
  const auto slow = connectMany(20, collector.gamePort(), "\x16\x03\x01");
  const auto operators = connectMany(20, collector.pagePort(), "GET /api/sta");

  EXPECT_GT(kSoon, collector.stop());
}

TEST(HangingClientsTest, AreTurnedAwayBeyondABoundOfGames) {
  RunningCollector nearlyFull;
  const auto others = connectMany(kMostGames - 1, nearlyFull.gamePort(), "\x16\x03\x01");
  EXPECT_EQ(kSuccess, nearlyFull.answerTo("/session", adAttempt()));

  RunningCollector full;
  const auto slow = connectMany(kMostGames, full.gamePort(), "\x16\x03\x01");
  EXPECT_THAT(full.answerTo("/session", adAttempt()), StartsWith("no answer: "));
}

TEST(HangingClientsTest, AreTurnedAwayBeyondABoundOfOperators) {
  RunningCollector collector;
  const auto slow = connectMany(kMostOperators, collector.pagePort(), "GET /api/sta");

  EXPECT_FALSE(collector.page()->Get("/api/status"));
}

TEST(HangingClientsTest, GiveWayToGamesWhileTheySayNothing) {
  RunningCollector collector;
  const auto silent = connectMany(2 * kMostGames, collector.gamePort(), "");

  EXPECT_EQ(kSuccess, collector.answerTo("/session", adAttempt()));

  EXPECT_TRUE(isEnded(silent.front()));
}

TEST(HangingClientsTest, GiveWayToOperatorsWhileTheySayNothing) {
  RunningCollector collector;
  const auto silent = connectMany(2 * kMostOperators, collector.pagePort(), "");

  EXPECT_TRUE(collector.page()->Get("/api/status"));

  EXPECT_TRUE(isEnded(silent.front()));
}

TEST(HangingClientsTest, AreLetGoAfterAWhile) {
  RunningCollector collector(
      {.times = {.handshake = std::chrono::seconds(1), .idle = std::chrono::seconds(1)}});
  const OwnedSocket silentGame = connectTo(collector.gamePort());
  const OwnedSocket slowGame = connectTo(collector.gamePort(), "\x16\x03\x01");
  const OwnedSocket silentOperator = connectTo(collector.pagePort());
  const auto idleGame = collector.game();
  idleGame->set_keep_alive(true);
  EXPECT_TRUE(idleGame->Post("/session", adAttempt(), kJson));

  EXPECT_TRUE(isEnded(silentGame));
  EXPECT_TRUE(isEnded(slowGame));
  EXPECT_TRUE(isEnded(silentOperator));
  EXPECT_TRUE(isEnded(idleGame->socket()));
}

TEST(HangingClientsTest, MakeRoomForOthersWhenTheyLeave) {
  RunningCollector collector;
  connectMany(kMostGames, collector.gamePort(), "\x16\x03\x01").clear();

  EXPECT_EQ(kSuccess, answerOnce(collector, kSuccess));
}

}  // namespace
}  // namespace zln::collector
