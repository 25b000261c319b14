// Servers that offer HTTP/2 and speak it badly.

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <string_view>

#include "tests/network/scene.h"

namespace zln {

namespace {

enum class FrameType : char {
  kData = 0,
  kHeaders = 1,
  kResetStream = 3,
  kSettings = 4,
  kPing = 6,
  kGoAway = 7,
  kContinuation = 9,
};

constexpr char kNoFlags = 0;
constexpr char kEndOfStream = 1;
constexpr char kEndOfHeaders = 4;
// The only stream, and what belongs to the connection as a whole.
constexpr char kStream = 1;
constexpr char kConnection = 0;
// ":status: 200" in the table that both sides know.
constexpr char kStatus200[] = "\x88";

constexpr char kInternalError = 2;
constexpr char kRefusedStream = 7;

std::string frame(FrameType type, char flags, char stream, const std::string& payload) {
  const std::size_t length = payload.size();
  std::string bytes;
  for (const std::size_t shift : {16u, 8u, 0u}) bytes += static_cast<char>(length >> shift & 0xff);
  bytes += static_cast<char>(type);
  bytes += flags;
  return bytes + std::string(3, '\0') + stream + payload;
}

std::string number(char value) { return std::string(3, '\0') + value; }

std::string settings() { return frame(FrameType::kSettings, kNoFlags, kConnection, ""); }

std::string okHead() { return frame(FrameType::kHeaders, kEndOfHeaders, kStream, kStatus200); }

std::string data(const std::string& bytes, char flags) {
  return frame(FrameType::kData, flags, kStream, bytes);
}

std::string goodReply() { return okHead() + data(R"({"success":true})", kEndOfStream); }

int chooseHttp2(SSL*, const unsigned char** chosen, unsigned char* size,
                const unsigned char* offered, unsigned int offeredSize, void*) {
  static constexpr std::string_view kOwn = "\x02h2";
  unsigned char* found = nullptr;
  const int result =
      SSL_select_next_proto(&found, size, reinterpret_cast<const unsigned char*>(kOwn.data()),
                            static_cast<unsigned int>(kOwn.size()), offered, offeredSize);
  *chosen = found;
  return result == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_ALERT_FATAL;
}

// After the settings and the request the server goes on like this.
Row speaks(const std::string& what, const Script& script, const Outcome& outcome,
           HttpTimeouts timeouts = {}) {
  const Script whole = Script{handshake(), say(settings()), readHttp2Request()} + script;
  return {"HTTP/2, " + what,
          [whole](Scene& scene) {
            scene.server().configure([](SSL_CTX* context) {
              SSL_CTX_set_alpn_select_cb(context, chooseHttp2, nullptr);
            });
            scene.server().play(whole);
            return scene.server().url("/session");
          },
          outcome, timeouts};
}

// The client may try again by itself, but not for ever.
void fewConnections(Scene& scene) {
  EXPECT_LE(scene.server().connections(), 10) << "connections of one request";
}

}  // namespace

std::vector<Row> http2Rows() {
  const Outcome lost = temporaryError(-1005);
  const std::string goAway =
      frame(FrameType::kGoAway, kNoFlags, kConnection, number(0) + number(0));
  std::vector<Row> rows = {
      speaks("a good reply", {say(goodReply()), stall()}, response(200, R"({"success":true})")),
      speaks("close before the reply", {finish()}, lost),
      speaks("reset before the reply", {reset()}, lost),
      speaks("close within the body", {say(okHead() + data("{", kNoFlags)), finish()}, lost),
      speaks("stall before the reply", {stall()}, temporaryError(-1001), shortTimeouts()),
      speaks("stall within the body", {say(okHead() + data("{", kNoFlags)), stall()},
             temporaryError(-1001), shortTimeouts()),
      speaks("pings for ever",
             {sayForEver(frame(FrameType::kPing, kNoFlags, kConnection, std::string(8, 'p')),
                         std::chrono::milliseconds(5))},
             temporaryError(-1001), shortTimeouts()),
      speaks(
          "stream broken off",
          {say(frame(FrameType::kResetStream, kNoFlags, kStream, number(kInternalError))), stall()},
          lost),
      speaks(
          "stream refused",
          {say(frame(FrameType::kResetStream, kNoFlags, kStream, number(kRefusedStream))), stall()},
          lost),
      speaks("farewell before the reply", {say(goAway), finish()}, lost),
      speaks("body without a head", {say(data("{}", kEndOfStream)), stall()}, lost),
      // libcurl does not tell it from the end of the body. Half an object is no JSON, so the report
      // is sent again.
      speaks("frame too large within the body",
             {say(okHead() + data("{\"succ", kNoFlags) + data(std::string(17000, 'x'), kNoFlags)),
              stall()},
             response(200, "{\"succ")),
      speaks("headers that cannot be unpacked",
             {say(frame(FrameType::kHeaders, kEndOfHeaders, kStream, "\xff\xff\xff\xff\xff\xff")),
              stall()},
             lost),
      speaks("reply of HTTP/1 instead",
             {say("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"), stall()}, lost),
      speaks("garbage for ever", {sayForEver(std::string(4096, '\xfe'))}, lost),
      speaks("headers without an end",
             {say(frame(FrameType::kHeaders, kNoFlags, kStream, kStatus200)),
              sayForEver(frame(FrameType::kContinuation, kNoFlags, kStream,
                               std::string("\x40\x01X\x01") + "1"))},
             temporaryErrorOf({-1005, -1103})),
      speaks("body without an end",
             {say(okHead()), sayForEver(data(std::string(16384, 'x'), kNoFlags))},
             temporaryError(-1103)),
  };
  for (Row& row : rows) row.check = fewConnections;
  return rows;
}

}  // namespace zln
