// Clients that say nothing, or nearly nothing, and stay.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <string_view>
#include <vector>

#include "tests/collector/raw_client.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

constexpr std::size_t kMostGames = 256;
constexpr std::size_t kMostOperators = 128;
constexpr std::chrono::duration<double> kSoon = std::chrono::seconds(20);

std::vector<OwnedSocket> connectMany(std::size_t count, int port, std::string_view firstBytes) {
  std::vector<OwnedSocket> sockets;
  for (std::size_t i = 0; i < count; ++i) sockets.push_back(connectTo(port, firstBytes));
  return sockets;
}

// Waits for the other side to end the connection, by an end or an error.
bool isEnded(const OwnedSocket& socket) {
  char byte = 0;
  const ssize_t got = ::recv(socket.get(), &byte, 1, 0);
  return got == 0 || (got < 0 && errno == ECONNRESET);
}

TEST(HangingClientsTest, DoNotStopGames) {
  RunningCollector collector;
  const auto silent = connectMany(32, collector.gamePort(), "");
  const auto slow = connectMany(32, collector.gamePort(), "\x16\x03\x01");

  EXPECT_EQ(R"({"success":true})", collector.answerTo("/session", adAttempt()));
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
  RunningCollector collector;
  const auto silent = connectMany(kMostGames, collector.gamePort(), "");

  EXPECT_TRUE(isEnded(connectTo(collector.gamePort())));
}

TEST(HangingClientsTest, AreTurnedAwayBeyondABoundOfOperators) {
  RunningCollector collector;
  const auto silent = connectMany(kMostOperators, collector.pagePort(), "");

  EXPECT_TRUE(isEnded(connectTo(collector.pagePort())));
}

TEST(HangingClientsTest, MakeRoomForOthersWhenTheyLeave) {
  RunningCollector collector;
  connectMany(kMostGames, collector.gamePort(), "").clear();

  std::string answer;
  const auto end = std::chrono::steady_clock::now() + kSoon;
  while (answer != R"({"success":true})" && std::chrono::steady_clock::now() < end) {
    answer = collector.answerTo("/session", adAttempt());
  }

  EXPECT_EQ(R"({"success":true})", answer);
}

}  // namespace
}  // namespace zln::collector
