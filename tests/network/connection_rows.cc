// Connections: that do not come about, that break at each stage of a request, that stand still.

#include <netdb.h>

#include <cerrno>
#include <utility>

#include "tests/network/scene.h"

namespace zln {

namespace {

constexpr std::size_t kBigBody = 16 * 1024 * 1024;

// How far a request has come when something happens to its connection.
struct Stage {
  const char* when;
  Script before;
  bool encrypted;
  std::size_t bodySize = 0;
};

std::vector<Stage> stages() {
  return {
      {"on accept", {awaitBytes()}, false},
      {"after the client's hello", {readSome()}, false},
      {"within the server's hello", {handshakeUpTo(100)}, false},
      {"after the handshake", {handshake()}, true},
      {"within the request's body", {handshake(), readHead()}, true, kBigBody},
      {"before the reply", takeRequest(), true},
      {"within the reply's head", takeRequest() + say("HTTP/1.1 200 OK\r\nContent-Le"), true},
      {"within the reply's body",
       takeRequest() + say("HTTP/1.1 200 OK\r\nContent-Length: 16\r\n\r\n{\"succ"), true},
  };
}

void addBreaks(std::vector<Row>& rows, const Stage& stage) {
  const Outcome broken = temporaryError(stage.encrypted ? -1005 : -1200);
  const auto add = [&](const std::string& what, const Step& end) {
    rows.push_back(
        {what + " " + stage.when, serverPlays(stage.before + end), broken, {}, stage.bodySize});
  };
  add("reset", reset());
  add("close", finish());
  if (stage.encrypted) add("farewell", finishWithFarewell());
}

void addStall(std::vector<Row>& rows, const Stage& stage) {
  rows.push_back({std::string("stall ") + stage.when, serverPlays(stage.before + stallUnread()),
                  temporaryError(-1001), shortTimeouts(), stage.bodySize});
}

std::string urlOf(std::uint16_t port) { return "https://127.0.0.1:" + std::to_string(port) + "/"; }

Row unroutable(const std::string& what, int error, int code) {
  return {what,
          [error](Scene& scene) {
            const std::uint16_t port = scene.portThatIsClosed();
            scene.keep(std::make_shared<PortWithoutRoute>(port, error));
            return urlOf(port);
          },
          temporaryError(code)};
}

Row nameless(const std::string& what, int result) {
  return {what,
          [result](Scene& scene) {
            scene.keep(std::make_shared<NameWithoutAddress>("reports.invalid", result));
            return std::string("https://reports.invalid/session");
          },
          temporaryError(-1003)};
}

void addUnreachable(std::vector<Row>& rows) {
  rows.push_back({"connection refused",
                  [](Scene& scene) { return urlOf(scene.portThatIsClosed()); },
                  temporaryError(-1004)});
  rows.push_back({"connection unanswered",
                  [](Scene& scene) { return urlOf(scene.portThatIsFull()); }, temporaryError(-1001),
                  shortTimeouts()});
  rows.push_back(unroutable("no route to the network", ENETUNREACH, -1009));
  rows.push_back(unroutable("network is down", ENETDOWN, -1009));
  rows.push_back(unroutable("no route to the host", EHOSTUNREACH, -1004));
  rows.push_back(unroutable("forbidden by a firewall", EPERM, -1004));
  rows.push_back(unroutable("no port is left", EADDRNOTAVAIL, -1004));
  rows.push_back(nameless("host unknown", EAI_NONAME));
  rows.push_back(nameless("look-up without an answer", EAI_AGAIN));
  rows.push_back(nameless("look-up fails", EAI_FAIL));
  rows.push_back({"look-up hangs",
                  [](Scene& scene) {
                    scene.keep(std::make_shared<NameWithoutAddress>(
                        "reports.invalid", EAI_AGAIN, NameWithoutAddress::When::kWhenThisGoes));
                    return std::string("https://reports.invalid/session");
                  },
                  temporaryError(-1001), shortTimeouts()});
  rows.push_back({"host without a name between two dots",
                  [](Scene&) { return std::string("https://reports..invalid/session"); },
                  temporaryError(-1003)});
  rows.push_back({"only IPv6",
                  [](Scene& scene) { return scene.otherServer(IpFamily::kIpv6).url("/session"); },
                  response(200, R"({"from":"the other"})"),
                  {},
                  0,
                  true});
}

void addSlow(std::vector<Row>& rows) {
  const HttpTimeouts moving{.idle = std::chrono::milliseconds(2000)};
  const HttpTimeouts endless{.resource = kShort};
  const std::string head = "HTTP/1.1 200 OK\r\nX: 1\r\nX: 2\r\nX: 3\r\nContent-Length: 50\r\n\r\n";
  const std::string body = kBody + std::string(34, ' ');
  const auto pause = kShort / 50;
  rows.push_back({"handshake dripping for too long",
                  serverPlays({handshakeByteByByte(kShort / 10), stall()}), temporaryError(-1001),
                  shortTimeouts()});
  rows.push_back(
      {"head and body dripping, each longer than a silence may last",
       serverPlays(takeRequest() + sayByteByByte(head + body, moving.idle / 40) + stall()),
       response(200, body), moving});
  rows.push_back(
      {"reply's head dripping for ever",
       serverPlays(takeRequest() + say("HTTP/1.1 200 OK\r\n") + sayForEver("X: 1\r\n", pause)),
       temporaryError(-1001), endless});
  rows.push_back(
      {"reply's body dripping for ever",
       serverPlays(takeRequest() + say("HTTP/1.1 200 OK\r\n\r\n") + sayForEver("x", pause)),
       temporaryError(-1001), endless});
}

void addWrongProtocol(std::vector<Row>& rows) {
  rows.push_back({"plain HTTP on the port of TLS",
                  serverPlays({readSome(), say("HTTP/1.1 400 Bad Request\r\n\r\n"), finish()}),
                  temporaryError(-1200)});
  rows.push_back({"garbage on the port of TLS",
                  serverPlays({readSome(), say(std::string(5000, '\x7f')), finish()}),
                  temporaryError(-1200)});
  rows.push_back({"garbage for ever on the port of TLS",
                  serverPlays({readSome(), sayForEver(std::string(5000, '\x16'))}),
                  temporaryError(-1200)});
  rows.push_back({"garbage in place of an encrypted reply",
                  serverPlays(takeRequest() + sayUnencrypted(std::string(500, '\x17')) + finish()),
                  temporaryError(-1005)});
}

}  // namespace

std::vector<Row> connectionRows() {
  std::vector<Row> rows;
  addUnreachable(rows);
  for (const Stage& stage : stages()) addBreaks(rows, stage);
  for (const Stage& stage : stages()) addStall(rows, stage);
  addSlow(rows);
  addWrongProtocol(rows);
  return rows;
}

}  // namespace zln
