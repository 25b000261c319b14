#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tests/host/launched_game.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/https_server.h"

namespace zln {

// A game that is played against an HTTPS server of the test.
class PlayedGameTest : public LaunchedGameTest {
 protected:
  PlayedGameTest() {
    environment["SSL_CERT_FILE"] = server.caFile();
    environment["https_proxy"] = proxy.url();
  }

  // Whatever a test plays, every request of the library must keep to its schema.
  void TearDown() override {
    const std::vector<ReceivedRequest> requests = server.requests();
    if (requests.empty()) return;
    const std::string file = home.path() + "/requests";
    std::ofstream lines(file);
    for (const ReceivedRequest& request : requests) {
      lines << Json{{"target", request.target}, {"body", request.body}}.dump() << "\n";
    }
    lines.close();
    const std::string check =
        std::string(ZLN_SCHEMA_CHECK) + " " + ZLN_SCHEMA_FOLDER + " " + file + " >&2";
    EXPECT_EQ(0, std::system(check.c_str()));
  }

  // The host that a report's kind goes to.
  static std::string hostOf(const ReceivedRequest& request) { return request.header("Host"); }

  static bool isReport(const ReceivedRequest& request) { return request.target == "/session"; }

  // Waits until so many reports have come and returns the bodies of all in the order of coming.
  std::vector<Json> waitForReports(std::size_t count) {
    return waitFor(count, [](const std::vector<Json>& bodies) { return bodies; });
  }
  // Waits for so many reports with that value under that key and returns all of these.
  std::vector<Json> waitForReportsHaving(const std::string& key, const Json& value,
                                         std::size_t count) {
    return waitFor(count,
                   [&](const std::vector<Json>& bodies) { return having(bodies, key, value); });
  }
  std::vector<Json> reports() const {
    std::vector<Json> bodies;
    for (const ReceivedRequest& request : server.requests()) {
      if (isReport(request)) bodies.push_back(Json::parse(request.body));
    }
    return bodies;
  }

  HttpsServer server;
  ConnectProxy proxy{portOf(server)};

 private:
  template <typename Choice>
  std::vector<Json> waitFor(std::size_t count, Choice choice) {
    while (true) {
      const std::size_t seen = server.requests().size();
      const std::vector<Json> found = choice(reports());
      if (found.size() >= count || !server.waitForRequests(seen + 1)) return found;
    }
  }

  static std::uint16_t portOf(const HttpsServer& server) {
    const std::string authority = server.authority();
    return static_cast<std::uint16_t>(std::stoi(authority.substr(authority.find(':') + 1)));
  }
};

}  // namespace zln
