// Replies that lead elsewhere.

#include <gtest/gtest.h>

#include <utility>

#include "tests/network/scene.h"

namespace zln {

namespace {

std::string redirectTo(int status, const std::string& target) {
  return "HTTP/1.1 " + std::to_string(status) + " Moved\r\nLocation: " + target +
         "\r\nContent-Length: 0\r\n\r\n";
}

Script leads(int status, const std::string& target) {
  return takeRequest() + say(redirectTo(status, target)) + stall();
}

// The reply leads to this place. Where it has to be reached, it is the second thing the server
// plays.
Row ledTo(const std::string& what, const std::string& target, const Outcome& outcome) {
  return {"redirect " + what, serverPlays({leads(307, target), goodScript()}), outcome};
}

// The reply leads to the URL that is made from the scene.
Row ledElsewhere(const std::string& what, std::function<std::string(Scene&)> target,
                 const Outcome& outcome) {
  return {"redirect " + what,
          [target = std::move(target)](Scene& scene) {
            const std::string url = target(scene);
            return serverPlays(leads(307, url))(scene);
          },
          outcome};
}

Row loop() {
  Row row{"redirect in a circle", serverPlays(leads(307, "/session")), temporaryError(-1007)};
  row.check = [](Scene& scene) { EXPECT_EQ(21, scene.server().connections()); };
  return row;
}

Row circleOfTwo() {
  return {"redirect to and fro between two servers",
          [](Scene& scene) {
            HttpsServer& other = scene.otherServer();
            scene.server().play(leads(308, other.url("/")));
            other.play(leads(308, scene.server().url("/")));
            return scene.server().url("/session");
          },
          temporaryError(-1007)};
}

// Another server, whose root nobody trusts.
std::string urlOfStranger(Scene& scene) {
  const auto stranger = std::make_shared<HttpsServer>();
  scene.keep(stranger);
  return stranger->url("/");
}

std::vector<Row> targets() {
  return {
      ledTo("to plain HTTP", "http://127.0.0.1/", temporaryError(-1022)),
      ledTo("to a file", "file:///etc/hostname", permanentError(-1002)),
      ledTo("to FTP", "ftp://127.0.0.1/", permanentError(-1002)),
      ledTo("to a script", "javascript:alert(1)", permanentError(-1002)),
      ledTo("to a port that is none", "https://127.0.0.1:99999/", temporaryError(-1000)),
      ledTo("to no place", "", response(307, "")),
      ledTo("to a relative place", "../elsewhere?a=b#c", response(200, R"({"success":true})")),
      ledTo("to a host unknown", "https://reports..invalid/", temporaryError(-1003)),
      ledElsewhere(
          "to another server", [](Scene& scene) { return scene.otherServer().url("/"); },
          response(200, R"({"from":"the other"})")),
      ledElsewhere("to a server that is not trusted", urlOfStranger, temporaryError(-1202)),
      ledElsewhere(
          "to a server that is not there",
          [](Scene& scene) {
            return "https://127.0.0.1:" + std::to_string(scene.portThatIsClosed()) + "/";
          },
          temporaryError(-1004)),
  };
}

std::vector<Row> endings() {
  const std::string head = "HTTP/1.1 307 Moved\r\nLocation: /new\r\n";
  return {
      {"redirect to a place that stalls",
       serverPlays({leads(307, "/new"), takeRequest() + stall()}), temporaryError(-1001),
       shortTimeouts()},
      {"redirect that breaks off",
       serverPlays(takeRequest() + say(head + "Content-Length: 10\r\n\r\n12") + reset()),
       temporaryError(-1005)},
      {"redirect with a body without an end",
       serverPlays(takeRequest() + say(head + "\r\n") + sayForEver(std::string(65536, 'x'))),
       temporaryError(-1103)},
      {"redirect to a place without an end",
       serverPlays(takeRequest() + say("HTTP/1.1 307 Moved\r\nLocation: /") +
                   sayForEver(std::string(4096, 'x'))),
       temporaryError(-1)},
  };
}

}  // namespace

std::vector<Row> redirectRows() {
  std::vector<Row> rows = {loop(), circleOfTwo()};
  for (const std::vector<Row>& part : {targets(), endings()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  return rows;
}

}  // namespace zln
