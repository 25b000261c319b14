#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/host/launched_game.h"
#include "tests/support/collector_process.h"
#include "tests/support/connect_proxy.h"

namespace zln {

// A game that is played against a collector, which is steered and asked as a game's own tests
// would.
class CollectedGameTest : public LaunchedGameTest {
 protected:
  CollectedGameTest() {
    environment["SSL_CERT_FILE"] = collector.caFile();
    environment["https_proxy"] = proxy.url();
  }

  // Whatever a test plays, no report of the library is invalid, and the collector ends well.
  void TearDown() override {
    EXPECT_THAT(collector.reportsJudged("invalid"), testing::IsEmpty());
    EXPECT_TRUE(collector.end()) << collector.complaints();
  }

  // Waits until so many reports have come and returns the bodies of all in the order of coming.
  std::vector<Json> waitForReports(std::size_t count) {
    collector.waitFor(count);
    return bodiesOf(collector.reports());
  }
  // Waits for so many reports with that value under that key and returns all of these.
  std::vector<Json> waitForReportsHaving(const std::string& key, const Json& value,
                                         std::size_t count) {
    collector.waitFor(count, {{key, value}});
    return having(bodiesOf(collector.reports()), key, value);
  }

  static std::vector<Json> bodiesOf(const std::vector<Json>& reports) {
    std::vector<Json> bodies;
    for (const Json& report : reports) bodies.push_back(report.value("body", Json()));
    return bodies;
  }
  // What the collector says of each, such as its verdict.
  static std::vector<std::string> verdictsOf(const std::vector<Json>& reports) {
    std::vector<std::string> verdicts;
    for (const Json& report : reports) verdicts.push_back(report["verdict"]);
    return verdicts;
  }
  static std::vector<std::string> outcomesOf(const std::vector<Json>& reports) {
    std::vector<std::string> outcomes;
    for (const Json& report : reports) outcomes.push_back(report["answer"]["outcome"]);
    return outcomes;
  }

  CollectorProcess collector{home.path() + "/collector"};
  ConnectProxy proxy{collector.gamePort()};
};

}  // namespace zln
