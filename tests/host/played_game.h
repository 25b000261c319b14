#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/https_server.h"
#include "tests/support/temporary_folder.h"

namespace zln {

// A game on the finished library, played in a home folder of its own against an HTTPS server of the
// test. The library's hosts are those of an unset build; a proxy leads them all to the server.
class PlayedGameTest : public testing::Test {
 protected:
  using Json = nlohmann::json;

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

  // Starts the game; what a test adds to `environment` before counts.
  void launch() {
    game = std::make_unique<ChildProcess>(ZLN_GAME_PROGRAM, environment, home.path() + "/errors");
  }
  // The usual first steps of a game.
  void launchAndStart() {
    launch();
    tell("app com.example.game 1.2.3");
    tell("initialize engine-5");
    tell("start");
    tell("active");
  }
  std::string tell(const std::string& command) { return game->tell(command); }

  std::string folder() const { return home.path() + "/data/com.example.game/com.zelnor.sdk"; }

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
  // Those with that value under that key.
  static std::vector<Json> having(const std::vector<Json>& bodies, const std::string& key,
                                  const Json& value) {
    std::vector<Json> found;
    for (const Json& body : bodies) {
      if (body.contains(key) && body[key] == value) found.push_back(body);
    }
    return found;
  }

  TemporaryFolder home;
  HttpsServer server;
  ConnectProxy proxy{portOf(server)};
  std::map<std::string, std::string> environment = {
      {"HOME", home.path()},
      {"XDG_DATA_HOME", home.path() + "/data"},
      {"XDG_CONFIG_HOME", home.path() + "/config"},
      {"SSL_CERT_FILE", server.caFile()},
      {"https_proxy", proxy.url()},
      {"LANG", "de_DE.UTF-8"},
  };
  std::unique_ptr<ChildProcess> game;

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
