#include <gmock/gmock.h>

#include <filesystem>

#include "tests/host/stored_files.h"

namespace zln {
namespace {

using testing::UnorderedElementsAre;

// What a game finds after one that was killed while it took up stored reports.
class TakingUpTest : public StoredFilesTest {
 protected:
  std::string keptFile() const { return folder() + "/.reports.json.spare.old"; }

  // An attempt whose network is a digit, with an event of its own.
  static Value report(const std::string& network) {
    Dictionary dictionary = adReport(network);
    dictionary.set("adEventId", "00000000-0000-4000-8000-00000000000" + network);
    return dictionary;
  }

  // The networks of all attempts that came, once the game has nothing more to send.
  std::vector<std::string> sentNetworks() {
    waitForReportsHaving("type", "ReportTypeSessionFirst", 1);
    while (valueIn(reportsFile()) != Value(Array{})) tell("background");
    std::vector<std::string> networks;
    for (const Json& body : having(reports(), "type", "ReportTypeAdAttempt")) {
      networks.push_back(body["network"]);
    }
    return networks;
  }
};

TEST_F(TakingUpTest, ReportsThatWereNotTakenUpAreSentAndNoneIsSentTwice) {
  put(keptFile(), Array{report("1"), report("2"), report("3")});
  put(reportsFile(), Array{report("1"), report("4")});
  launchAndStart();
  waitForReportsHaving("network", "4", 1);

  EXPECT_THAT(sentNetworks(), UnorderedElementsAre("1", "2", "3", "4"));
}

TEST_F(TakingUpTest, WhatWasKeptIsGoneOnceItIsTakenUp) {
  put(keptFile(), Array{report("1")});
  put(reportsFile(), Array{report("2")});
  launchAndStart();
  waitForReportsHaving("network", "2", 1);
  sentNetworks();

  // The thread that has taken it up removes it last.
  waitUntilAtRest();

  EXPECT_FALSE(std::filesystem::exists(keptFile()));
}

TEST_F(TakingUpTest, AKeptFileThatIsTornCostsNothing) {
  put(keptFile(), std::string("<?xml version=\"1.0\" enc"));
  put(reportsFile(), Array{report("1")});
  launchAndStart();
  waitForReportsHaving("network", "1", 1);

  EXPECT_THAT(sentNetworks(), UnorderedElementsAre("1"));
}

TEST_F(TakingUpTest, ReportsWithoutAnEventAreAllSent) {
  Dictionary nameless = adReport("nameless");
  nameless.remove("adEventId");
  put(keptFile(), Array{nameless});
  put(reportsFile(), Array{nameless, nameless});
  launchAndStart();
  waitForReportsHaving("network", "nameless", 3);

  EXPECT_THAT(sentNetworks(), UnorderedElementsAre("nameless", "nameless", "nameless"));
}

}  // namespace
}  // namespace zln
