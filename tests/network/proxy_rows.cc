// A proxy that the environment names: how it fails, and that its words are not the server's.

#include <gtest/gtest.h>

#include <memory>

#include "tests/network/scene.h"
#include "tests/support/connect_proxy.h"

namespace zln {

namespace {

// The client reaches the server through one that does this.
Row through(const std::string& what, const Script& script, const Outcome& outcome,
            HttpTimeouts timeouts = {}) {
  Row row{"proxy " + what,
          [script](Scene& scene) {
            const auto proxy = std::make_shared<HttpsServer>();
            proxy->play(script);
            scene.keep(proxy);
            scene.setVariable("https_proxy", "http://" + proxy->authority());
            return scene.server().url("/session");
          },
          outcome, timeouts};
  row.check = [](Scene& scene) { EXPECT_EQ(0, scene.server().connections()); };
  return row;
}

// The proxy that works stands under this name in the environment.
Row named(const std::string& variable, bool counts) {
  const auto proxy = std::make_shared<std::weak_ptr<ConnectProxy>>();
  Row row{"proxy in " + variable,
          [=](Scene& scene) {
            const auto working = std::make_shared<ConnectProxy>(scene.server().port());
            *proxy = working;
            scene.keep(working);
            scene.setVariable(variable, working->url());
            return scene.server().url("/session");
          },
          response(200, R"({"success":true})")};
  row.check = [=](Scene&) {
    ASSERT_TRUE(proxy->lock());
    EXPECT_EQ(counts ? 1u : 0u, proxy->lock()->hosts().size()) << "tunnels";
  };
  return row;
}

// The proxy is not there, and the environment says for whom it is not meant.
Row exempted(const std::string& what, const std::string& hosts, const Outcome& outcome) {
  return {"proxy " + what,
          [hosts](Scene& scene) {
            scene.setVariable("https_proxy",
                              "http://127.0.0.1:" + std::to_string(scene.portThatIsClosed()));
            scene.setVariable("no_proxy", hosts);
            return scene.server().url("/session");
          },
          outcome};
}

Row absent(const std::string& what, const std::string& variable, const std::string& scheme) {
  return {"proxy " + what,
          [=](Scene& scene) {
            scene.setVariable(variable,
                              scheme + "127.0.0.1:" + std::to_string(scene.portThatIsClosed()));
            return scene.server().url("/session");
          },
          temporaryError(-1004)};
}

std::string answer(const std::string& status) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: 16\r\n\r\n{\"success\":true}";
}

std::vector<Row> failing() {
  const Outcome lost = temporaryError(-1005);
  const std::string established = "HTTP/1.1 200 Connection established\r\n\r\n";
  return {
      absent("refuses", "https_proxy", "http://"),
      absent("for all refuses", "ALL_PROXY", "http://"),
      absent("of SOCKS refuses", "ALL_PROXY", "socks5h://"),
      {"proxy unknown", withVariable("https_proxy", "http://proxy..invalid:3128"),
       temporaryError(-1003)},
      {"proxy that is no URL", withVariable("https_proxy", "http://127.0.0.1:99999"),
       temporaryError(-1003)},
      through("wants a password", {readHead(), say(answer("407 Password")), finish()}, lost),
      through("has a bad gateway", {readHead(), say(answer("502 Bad Gateway")), finish()}, lost),
      through("takes the report itself", {readHead(), say(answer("500 Oops")), stall()}, lost),
      through("redirects",
              {readHead(),
               say("HTTP/1.1 307 Moved\r\nLocation: https://127.0.0.1/\r\n"
                   "Content-Length: 0\r\n\r\n"),
               finish()},
              lost),
      through("closes", {readHead(), finish()}, lost),
      through("resets", {readHead(), reset()}, lost),
      through("closes within its reply", {readHead(), say("HTTP/1.1 200 Conn"), finish()}, lost),
      through("speaks another protocol", {readHead(), say("SSH-2.0-Server\r\n"), finish()}, lost),
      through("stalls", {readHead(), stall()}, temporaryError(-1001), shortTimeouts()),
      through("stalls within its reply", {readHead(), say("HTTP/1.1 200 Conn"), stall()},
              temporaryError(-1001), shortTimeouts()),
      through("sends headers without an end",
              {readHead(), say("HTTP/1.1 200 Connection established\r\n"),
               sayForEver("X-A-Header: with a value\r\n")},
              temporaryErrorOf({-1001, -1005}), shortTimeouts()),
      through("sends a header line without an end",
              {readHead(), say("HTTP/1.1 200 Connection established\r\nX: "),
               sayForEver(std::string(4096, 'x'))},
              lost),
      through("resets the tunnel", {readHead(), say(established), readSome(), reset()},
              temporaryError(-1200)),
      through("closes the tunnel", {readHead(), say(established), finish()}, temporaryError(-1200)),
      through("leaves the tunnel empty", {readHead(), say(established), stall()},
              temporaryError(-1001), shortTimeouts()),
  };
}

}  // namespace

std::vector<Row> proxyRows() {
  std::vector<Row> rows = failing();
  rows.insert(rows.end(),
              {
                  named("https_proxy", true),
                  named("HTTPS_PROXY", true),
                  named("all_proxy", true),
                  named("ALL_PROXY", true),
                  named("http_proxy", false),
                  exempted("not for this host", "127.0.0.1", response(200, R"({"success":true})")),
                  exempted("not for any host", "*", response(200, R"({"success":true})")),
                  exempted("not for another host", "elsewhere.invalid", temporaryError(-1004)),
              });
  return rows;
}

}  // namespace zln
