#pragma once

#include <string>
#include <vector>

#include "tests/host/launched_game.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/https_server.h"
#include "tests/support/request_schemas.h"

namespace zln {

// A game that is played against an HTTPS server of the test.
class PlayedGameTest : public LaunchedGameTest {
 protected:
  PlayedGameTest() {
    environment["SSL_CERT_FILE"] = server.caFile();
    environment["https_proxy"] = proxy.url();
  }

  // Whatever a test plays, every request of the library must keep to its schema.
  void TearDown() override { expectThatRequestsKeepToSchemas(server); }
  static void expectThatRequestsKeepToSchemas(const HttpsServer& server) {
    for (const ReceivedRequest& request : server.requests()) {
      EXPECT_EQ("", schemaViolation(ZLN_SCHEMA_FOLDER, request));
    }
  }

  static bool isReport(const ReceivedRequest& request) { return request.target == "/session"; }

  // The bodies of the reports so far, in the order of coming.
  std::vector<Json> reports() const {
    std::vector<Json> bodies;
    for (const ReceivedRequest& request : server.requests()) {
      if (isReport(request)) bodies.push_back(Json::parse(request.body));
    }
    return bodies;
  }
  std::vector<Json> reportsHaving(const std::string& key, const Json& value) const {
    return having(reports(), key, value);
  }
  // Waits until so many reports have come and returns all.
  std::vector<Json> waitForReports(std::size_t count) {
    return waitFor(count, [this] { return reports(); });
  }
  // Waits for so many reports with that value under that key and returns all of these.
  std::vector<Json> waitForReportsHaving(const std::string& key, const Json& value,
                                         std::size_t count) {
    return waitFor(count, [&] { return reportsHaving(key, value); });
  }

  // Waits for one, which must be the only one.
  void expectOneReportHaving(const std::string& key, const Json& value) {
    EXPECT_EQ(1u, waitForReportsHaving(key, value, 1).size()) << key << " " << value;
  }

  // From now on nobody answers the game, and none of its requests counts as received.
  void silenceServer() { server.play({stall()}); }
  void letServerTalk() { server.answer(successReply()); }

  HttpsServer server;
  ConnectProxy proxy{server.port()};

 private:
  template <typename Choice>
  std::vector<Json> waitFor(std::size_t count, Choice choice) {
    while (true) {
      const std::size_t seen = server.requests().size();
      const std::vector<Json> found = choice();
      if (found.size() >= count || !server.waitForRequests(seen + 1)) return found;
    }
  }
};

}  // namespace zln
