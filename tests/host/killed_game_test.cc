#include <gmock/gmock.h>

#include <chrono>
#include <random>
#include <set>

#include "tests/host/stored_files.h"

namespace zln {
namespace {

using testing::IsSubsetOf;

class KilledGameTest : public StoredFilesTest {
 protected:
  // Kills the game at some moment of the next three milliseconds.
  void killSoon() {
    const auto moment = std::chrono::steady_clock::now() +
                        std::chrono::microseconds(std::uniform_int_distribution(0, 3000)(random_));
    while (std::chrono::steady_clock::now() < moment) continue;
    game->kill();
  }

  std::size_t storedCount() const {
    const std::optional<Value> root = valueIn(reportsFile());
    return root && root->array() != nullptr ? root->array()->size() : 0;
  }

  // Goes on when the game has taken up again what the lives before it owed, beside the report of
  // its own start, and no other thread of it saves any more: of two saves at once the last counts.
  void launchAndTakeUp() {
    const std::size_t owed = storedCount();
    launchAndStart();
    do {
      waitUntilAtRest();
      tell("background");
    } while (storedCount() < owed + 1);
    waitUntilAtRest();
  }

  // Of two reports that are delivered at once each save may still hold the other one, so the game
  // is made to save until nothing is left.
  void saveUntilNothingIsOwed() {
    while (valueIn(reportsFile()) != Value(Array{})) tell("background");
  }

  // Saves reports and settings in turns, without waiting for the game.
  void playBurst(const std::string& name) {
    for (int ad = 0; ad < 3; ++ad) {
      game->send("rewarded " + name + "burst" + std::to_string(ad) + " 1");
      game->send("active");
    }
  }

  static std::set<std::string> eventsOf(const std::vector<Json>& bodies) {
    std::set<std::string> events;
    for (const Json& body : bodies) events.insert(body["adEventId"]);
    return events;
  }

  std::string storedUser() const {
    const std::optional<Value> defaults = valueIn(defaultsFile());
    const Dictionary* entries = defaults ? defaults->dictionary() : nullptr;
    const std::string* user =
        entries == nullptr ? nullptr : entries->findString("com.zelnor.sessionUserId");
    return user == nullptr ? "none" : *user;
  }

 private:
  std::mt19937 random_{20260};
};

TEST_F(KilledGameTest, FilesAreWholeAtEveryMomentAndEveryAcknowledgedAdArrives) {
  constexpr int kRounds = 4;
  constexpr int kLives = 10;
  putStaleSettings();
  std::string user;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::string> acknowledged;
    silenceServer();
    for (int life = 0; life < kLives; ++life) {
      const std::string name = std::to_string(round) + "-" + std::to_string(life) + "-";
      SCOPED_TRACE(name);
      launchAndTakeUp();
      for (int ad = 0; ad < life % 4; ++ad) {
        acknowledged.push_back(name + std::to_string(ad));
        tell("banner " + acknowledged.back() + " 1");
      }
      playBurst(name);
      killSoon();

      ASSERT_THAT(acknowledged, IsSubsetOf(storedNetworks()));
      ASSERT_TRUE(valueIn(settingsFile()));
      if (user.empty()) user = storedUser();
      ASSERT_EQ(36u, user.size());
      ASSERT_EQ(user, storedUser());
    }
    letServerTalk();

    launchAndStart();

    for (const std::string& network : acknowledged) {
      EXPECT_EQ(1u, eventsOf(waitForReportsHaving("network", network, 1)).size()) << network;
    }
    saveUntilNothingIsOwed();
    game->kill();
  }
  EXPECT_EQ(reports().size(), reportsHaving("userId", user).size());
}

}  // namespace
}  // namespace zln
