#include "platform/posix/http_curl.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/crypto.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/posix/folder_fixture.h"
#include "tests/support/counted_threads.h"
#include "tests/support/environment_variable.h"
#include "tests/support/https_server.h"

namespace zln {
namespace {

using namespace std::chrono_literals;
using End = ServerReply::End;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr std::chrono::minutes kPatience{1};
constexpr std::size_t kMaxBodyBytes = 8'388'608;

HttpRequest post(const std::string& url) {
  return {"POST", url, {{"Content-Type", "application/json"}}, R"({"a":1})"};
}

std::string userAgent() { return "Game/1.0 Reporter/7 Linux"; }

// The reply to one request, when it comes.
std::future<HttpReply> start(HttpClient& client, HttpRequest request) {
  auto promise = std::make_shared<std::promise<HttpReply>>();
  client.upload(std::move(request),
                [promise](HttpReply reply) { promise->set_value(std::move(reply)); });
  return promise->get_future();
}

HttpReply await(std::future<HttpReply> reply) {
  if (reply.wait_for(kPatience) != std::future_status::ready) {
    ADD_FAILURE() << "no completion within a minute";
    return {};
  }
  return reply.get();
}

// The code of the error that a request came to; 0 when there is a response instead.
std::int64_t codeOf(const HttpReply& reply) { return reply.error ? reply.error->code : 0; }

int statusOf(const HttpReply& reply) { return reply.response ? reply.response->statusCode : 0; }

// A loopback port on which no one listens, and which no other process gets meanwhile.
class ClosedPort {
 public:
  ClosedPort() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(0, bind(socket_, generic, size));
    EXPECT_EQ(0, getsockname(socket_, generic, &size));
    authority_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }
  ~ClosedPort() { close(socket_); }
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;

  const std::string& authority() const { return authority_; }

 private:
  const int socket_ = socket(AF_INET, SOCK_STREAM, 0);
  std::string authority_;
};

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// The last piece comes again and again.
ServerReply endless(std::vector<std::string> pieces, std::chrono::milliseconds pause = 0ms) {
  ServerReply reply;
  reply.pieces = std::move(pieces);
  reply.pause = pause;
  reply.endless = true;
  return reply;
}

class HttpClientCurlTest : public testing::Test {
 protected:
  HttpReply send(HttpRequest request) { return await(start(client, std::move(request))); }
  HttpReply postTo(const std::string& target) { return send(post(server.url(target))); }

  // What a request to the server comes to that is answered with this.
  HttpReply replyTo(const ServerReply& reply) {
    server.answer(reply);
    return postTo("/");
  }
  // The request as it reaches the server.
  ReceivedRequest received(HttpRequest request) {
    send(std::move(request));
    const std::vector<ReceivedRequest> requests = server.requests();
    EXPECT_FALSE(requests.empty());
    return requests.empty() ? ReceivedRequest() : requests.back();
  }

  // What a client with these time-outs makes of a request to the server.
  HttpReply postWithin(HttpTimeouts timeouts) {
    HttpClientCurl other(pool, userAgent, timeouts);
    return await(start(other, post(server.url("/"))));
  }

  HttpsServer server;
  EnvironmentVariable authorities{"SSL_CERT_FILE", server.caFile()};
  EnvironmentVariable noProxy{"no_proxy", "*"};
  ThreadPool pool;
  HttpClientCurl client{pool, userAgent};
};

// The request.

TEST_F(HttpClientCurlTest, SendsTheHeadersThatAreSetAndItsOwnAndNoOthers) {
  const ReceivedRequest request = received(post(server.url("/session")));

  EXPECT_EQ("POST", request.method);
  EXPECT_EQ("/session", request.target);
  EXPECT_EQ(R"({"a":1})", request.body);
  EXPECT_THAT(request.headers,
              UnorderedElementsAre(
                  Pair("Host", server.authority()), Pair("User-Agent", "Game/1.0 Reporter/7 Linux"),
                  Pair("Accept", "*/*"), Pair("Accept-Encoding", "gzip, deflate, br"),
                  Pair("Accept-Language", "en-us"), Pair("Content-Type", "application/json"),
                  Pair("Content-Length", "7")));
}

TEST_F(HttpClientCurlTest, CountsAndFramesTheBodyItself) {
  const ReceivedRequest request = received(
      {"POST",
       server.url("/"),
       {{"Content-Length", "999"}, {"transfer-encoding", "chunked"}, {"Expect", "1"}, {"X", ""}},
       "12345"});

  EXPECT_EQ("12345", request.body);
  EXPECT_THAT(request.headers, Contains(Pair("Content-Length", "5")));
  EXPECT_THAT(request.headers, Not(Contains(Pair("Content-Length", "999"))));
  EXPECT_FALSE(request.hasHeader("Transfer-Encoding"));
  EXPECT_FALSE(request.hasHeader("Expect"));
  EXPECT_FALSE(request.hasHeader("Content-Type"));
  EXPECT_TRUE(request.hasHeader("X")) << "a header without a value";
}

TEST_F(HttpClientCurlTest, SendsALargeBodyWithEveryByteAndWithoutAsking) {
  const std::string body = repeated(std::string("\0\r\n\xff{}", 6), 500'000);

  const ReceivedRequest request = received({"POST", server.url("/"), {}, body});

  EXPECT_TRUE(body == request.body);
  EXPECT_FALSE(request.hasHeader("Expect"));
}

TEST_F(HttpClientCurlTest, LeavesOutHeadersThatWouldSplitTheRequest) {
  const ReceivedRequest request =
      received({"POST",
                server.url("/"),
                {{"X-A", "1\r\nX-Inner: 1"}, {"X-B\nX-Inner", "1"}, {"X-C", std::string("1\0", 2)}},
                "{}"});

  EXPECT_THAT(request.head, Not(HasSubstr("X-")));
}

TEST_F(HttpClientCurlTest, RefusesAMethodThatWouldSplitTheRequest) {
  const HttpReply reply = send({"POST / HTTP/1.1\r\nX: 1", server.url("/"), {}, "{}"});

  EXPECT_EQ(-1, codeOf(reply));
  EXPECT_EQ(0, server.connections());
}

TEST_F(HttpClientCurlTest, SendsAnyMethodWithItsBody) {
  const ReceivedRequest get = received({"GET", server.url("/"), {}, ""});
  const ReceivedRequest put = received({"PUT", server.url("/"), {}, "{}"});
  const ReceivedRequest empty = received({"POST", server.url("/"), {}, ""});

  EXPECT_EQ("GET", get.method);
  EXPECT_FALSE(get.hasHeader("Content-Length"));
  EXPECT_EQ("PUT", put.method);
  EXPECT_EQ("{}", put.body);
  EXPECT_EQ("POST", empty.method);
  EXPECT_EQ("0", empty.header("Content-Length"));
}

TEST_F(HttpClientCurlTest, EachRequestHasItsOwnUserAgentAndConnection) {
  std::atomic<int> asked = 0;
  HttpClientCurl other(pool, [&] { return "Agent/" + std::to_string(++asked); });

  await(start(other, post(server.url("/"))));
  await(start(other, post(server.url("/"))));

  const std::vector<ReceivedRequest> requests = server.requests();
  ASSERT_EQ(2u, requests.size());
  for (const int number : {1, 2}) {
    const ReceivedRequest& request = requests.at(static_cast<std::size_t>(number) - 1);
    EXPECT_EQ("Agent/" + std::to_string(number), request.header("User-Agent"));
    EXPECT_EQ(number, request.connection);
  }
}

TEST_F(HttpClientCurlTest, RequestsRunConcurrently) {
  std::latch allArrived(3);
  server.answer([&](const ReceivedRequest& request) {
    allArrived.arrive_and_wait();
    return replyWith(200, request.target);
  });

  std::vector<std::future<HttpReply>> replies;
  for (const char* target : {"/1", "/2", "/3"}) {
    replies.push_back(start(client, post(server.url(target))));
  }

  EXPECT_EQ("/1", await(std::move(replies[0])).body);
  EXPECT_EQ("/2", await(std::move(replies[1])).body);
  EXPECT_EQ("/3", await(std::move(replies[2])).body);
  EXPECT_EQ(3, server.connections());
}

TEST_F(HttpClientCurlTest, GoesByTheProxyOfTheEnvironment) {
  noProxy.set("");
  const ClosedPort closed;
  const EnvironmentVariable proxy("https_proxy", "http://" + closed.authority());

  const HttpReply reply = postTo("/");

  EXPECT_EQ(-1004, codeOf(reply));
  EXPECT_EQ(0, server.connections());
}

// The reply.

TEST_F(HttpClientCurlTest, GivesBodyStatusUrlAndHeaders) {
  server.answer(replyWith(200, R"({"success":true})",
                          {{"Content-Type", "application/json"}, {"x-Odd-NAME", "a  b"}}));

  const HttpReply reply = postTo("/session?a=b");

  EXPECT_FALSE(reply.error);
  EXPECT_EQ(R"({"success":true})", reply.body);
  ASSERT_TRUE(reply.response);
  EXPECT_EQ(200, reply.response->statusCode);
  EXPECT_EQ(server.url("/session?a=b"), reply.response->url);
  EXPECT_THAT(reply.response->headers,
              ElementsAre(Pair("Content-Type", "application/json"), Pair("x-Odd-NAME", "a  b"),
                          Pair("Content-Length", "16")));
}

TEST_F(HttpClientCurlTest, JoinsHeadersOfTheSameName) {
  server.answer(replyWith(200, "", {{"Via", "a"}, {"X", "1"}, {"via", "b"}, {"VIA", "c"}}));

  const HttpReply reply = postTo("/");

  ASSERT_TRUE(reply.response);
  EXPECT_THAT(reply.response->headers,
              ElementsAre(Pair("Via", "a, b, c"), Pair("X", "1"), Pair("Content-Length", "0")));
}

TEST_F(HttpClientCurlTest, LeavesOutWhatComesBeforeTheLastHeadAndBehindTheBody) {
  const HttpReply reply =
      replyTo(rawReply("HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\n"
                       "HTTP/1.1 200 OK\r\nX: 2\r\nTransfer-Encoding: chunked\r\n\r\n"
                       "2\r\n{}\r\n0\r\nX-Late: 3\r\n\r\n",
                       End::kKeepOpen));

  EXPECT_EQ("{}", reply.body);
  ASSERT_TRUE(reply.response);
  EXPECT_EQ(200, reply.response->statusCode);
  EXPECT_THAT(reply.response->headers,
              ElementsAre(Pair("X", "2"), Pair("Transfer-Encoding", "chunked")));
}

TEST_F(HttpClientCurlTest, AnyStatusIsAReply) {
  for (const int status : {200, 201, 299, 300, 301, 302, 303, 307, 308, 400, 401, 403, 404, 407,
                           417, 429, 500, 503, 599}) {
    const HttpReply reply = replyTo(replyWith(status, R"({"success":true})"));

    EXPECT_FALSE(reply.error);
    EXPECT_EQ(status, statusOf(reply));
    EXPECT_EQ(R"({"success":true})", reply.body);
  }
  EXPECT_EQ(19u, server.requests().size());
}

TEST_F(HttpClientCurlTest, AReplyWithoutContentHasAnEmptyBody) {
  const HttpReply reply = replyTo(rawReply("HTTP/1.1 204 No Content\r\n\r\n", End::kKeepOpen));

  EXPECT_FALSE(reply.error);
  EXPECT_EQ(204, statusOf(reply));
  EXPECT_EQ("", reply.body);
}

TEST_F(HttpClientCurlTest, ReadsABodyInChunksOrUntilTheConnectionIsClosed) {
  EXPECT_EQ(R"({"a":1})", replyTo(rawReply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                           "5\r\n{\"a\":\r\n2;name=x\r\n1}\r\n0\r\n\r\n",
                                           End::kKeepOpen))
                              .body);
  EXPECT_EQ("{}", replyTo(rawReply("HTTP/1.1 200 OK\r\n\r\n{}", End::kClose)).body);
  EXPECT_EQ("{}", replyTo(rawReply("HTTP/1.0 200 OK\r\n\r\n{}", End::kClose)).body);
}

TEST_F(HttpClientCurlTest, UnpacksGzipAndBrotli) {
  const std::string gzip(
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xab\x56\x2a\x2e\x4d\x4e\x4e\x2d\x2e\x56\xb2\x2a\x29"
      "\x2a\x4d\xad\x05\x00\xdf\xf7\xf6\x66\x10\x00\x00\x00",
      36);
  const std::string brotli(
      "\x1b\x0f\x00\xf8\xa5\x45\x74\xf6\xfa\xa4\x22\x92\x54\x52\x1b\x18\x71\x08\x1b", 19);

  EXPECT_EQ(R"({"success":true})",
            replyTo(replyWith(200, gzip, {{"Content-Encoding", "gzip"}})).body);
  EXPECT_EQ(R"({"success":true})",
            replyTo(replyWith(200, brotli, {{"Content-Encoding", "br"}})).body);
}

TEST_F(HttpClientCurlTest, AnUnknownOrBrokenPackingCannotBeDecoded) {
  for (const char* packing : {"gzip", "rot13"}) {
    EXPECT_EQ(-1016, codeOf(replyTo(replyWith(200, "{}", {{"Content-Encoding", packing}}))));
  }
}

// Limits.

TEST_F(HttpClientCurlTest, TakesABodyOfEightMegabytes) {
  EXPECT_EQ(kMaxBodyBytes, replyTo(replyWith(200, std::string(kMaxBodyBytes, 'x'))).body.size());
}

TEST_F(HttpClientCurlTest, RefusesALargerBodyByItsLength) {
  EXPECT_EQ(
      -1103,
      codeOf(replyTo(rawReply("HTTP/1.1 200 OK\r\nContent-Length: 8388609\r\n\r\n", End::kStall))));
}

TEST_F(HttpClientCurlTest, RefusesWhatHasNoEnd) {
  const std::vector<std::string> replies[] = {
      {"HTTP/1.1 200 OK\r\n\r\n", std::string(65536, 'x')},  // A body.
      {"HTTP/1.1 200 OK\r\n", "X: 1\r\n"},                   // Headers.
      {"HTTP/1.1 100 Continue\r\n\r\n"},                     // Heads.
  };
  for (const auto& pieces : replies) {
    const HttpReply reply = replyTo(endless(pieces));

    EXPECT_EQ(-1103, codeOf(reply)) << pieces[0];
    EXPECT_FALSE(reply.response);
    EXPECT_EQ("", reply.body);
  }
  EXPECT_EQ(-1, codeOf(replyTo(endless({"HTTP/1.1 200 OK\r\nX: ", std::string(65536, 'x')}))))
      << "a line";
}

TEST_F(HttpClientCurlTest, CountsABodyAsItIsUnpacked) {
  const std::string packedZeros =
      std::string("\x62\x60\x18", 3) +
      repeated("\x05\xa3\x60\x14\x8c\x82\x51\x30\x0a\x46\xc1\x28\x18", 4200);

  EXPECT_EQ(-1103, codeOf(replyTo(replyWith(200, packedZeros, {{"Content-Encoding", "deflate"}}))));
}

TEST_F(HttpClientCurlTest, TakesAThousandLinesOfHeadersAndNoMore) {
  const auto replyOf = [](int lines) {
    return rawReply(
        "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n" + repeated("X: 1\r\n", lines) + "\r\n",
        End::kKeepOpen);
  };

  EXPECT_EQ(200, statusOf(replyTo(replyOf(997))));
  EXPECT_EQ(-1103, codeOf(replyTo(replyOf(998))));
}

TEST_F(HttpClientCurlTest, RefusesLargeHeaders) {
  EXPECT_EQ(-1103,
            codeOf(replyTo(rawReply(
                "HTTP/1.1 200 OK\r\n" + repeated("X: " + std::string(50'000, 'x') + "\r\n", 6),
                End::kStall))));
}

// URLs.

TEST_F(HttpClientCurlTest, WhatIsNoHttpsUrlIsUnsupported) {
  for (const char* url : {"", "/session", "session", "127.0.0.1", "ftp://127.0.0.1/",
                          "file:///etc/hostname", "://", "https", "mailto:a@b"}) {
    EXPECT_EQ(-1002, codeOf(send(post(url)))) << url;
  }
}

TEST_F(HttpClientCurlTest, ABrokenHttpsUrlIsBad) {
  const std::string withNul = server.url("/") + std::string("\0x", 2);
  for (const std::string& url :
       {std::string("https:"), std::string("https:443/"), std::string("https:127.0.0.1"),
        std::string("https:///"), std::string("https://127.0.0.1:99999/"),
        std::string("https://127.0.0.1:x/"), std::string("https://127.0.0.1/\r\nX: 1"), withNul}) {
    EXPECT_EQ(-1000, codeOf(send(post(url)))) << url;
  }
}

TEST_F(HttpClientCurlTest, PlainHttpIsRefusedWithoutAConnection) {
  for (const char* scheme : {"http", "HTTP"}) {
    EXPECT_EQ(-1022, codeOf(send(post(scheme + ("://" + server.authority()) + "/"))));
  }
  EXPECT_EQ(0, server.connections());
  EXPECT_EQ(200, statusOf(send(post("HTTPS://" + server.authority() + "/"))));
}

TEST_F(HttpClientCurlTest, AnErrorComesWithItsTextAndTheUrl) {
  const HttpReply reply = send(post("ftp://127.0.0.1/a"));

  const Error expected{"NSURLErrorDomain",
                       -1002,
                       "unsupported URL",
                       {{"NSErrorFailingURLStringKey", "ftp://127.0.0.1/a"},
                        {"NSErrorFailingURLKey", "ftp://127.0.0.1/a"}}};
  EXPECT_EQ(expected, reply.error);
  EXPECT_FALSE(reply.response);
  EXPECT_EQ("", reply.body);
}

// Redirects.

TEST_F(HttpClientCurlTest, ARedirectIsFollowedByItsRule) {
  const struct {
    int status;
    const char* method;
    const char* methodAfter;
  } rows[] = {{301, "POST", "GET"},  {302, "POST", "GET"},  {303, "POST", "GET"},
              {305, "POST", "POST"}, {306, "POST", "POST"}, {307, "POST", "POST"},
              {308, "POST", "POST"}, {301, "PUT", "PUT"},   {302, "PUT", "PUT"},
              {303, "PUT", "GET"}};
  int connections = 0;
  for (const auto& [status, method, methodAfter] : rows) {
    SCOPED_TRACE(std::to_string(status) + " " + method);
    server.answer([status = status](const ReceivedRequest& request) {
      if (request.target != "/old") return replyWith(200, "arrived");
      return replyWith(status, "moved", {{"Location", "/new?a=b"}, {"X-Old", "1"}});
    });

    const HttpReply reply =
        send({method, server.url("/old"), {{"Content-Type", "text/a"}, {"X-Kept", "1"}}, "body"});

    EXPECT_EQ("arrived", reply.body);
    ASSERT_TRUE(reply.response);
    EXPECT_EQ(server.url("/new?a=b"), reply.response->url);
    EXPECT_THAT(reply.response->headers, ElementsAre(Pair("Content-Length", "7")));
    connections += 2;
    const ReceivedRequest request = server.requests().back();
    const bool bodyKept = std::string("GET") != methodAfter;
    EXPECT_EQ(methodAfter, request.method);
    EXPECT_EQ("/new?a=b", request.target);
    EXPECT_EQ(connections, request.connection);
    EXPECT_EQ("1", request.header("X-Kept"));
    EXPECT_EQ(bodyKept ? "body" : "", request.body);
    EXPECT_EQ(bodyKept ? "4" : "", request.header("Content-Length"));
    EXPECT_EQ(bodyKept ? "text/a" : "", request.header("Content-Type"));
  }
}

TEST_F(HttpClientCurlTest, OtherStatusesWithALocationAreNotFollowed) {
  for (const int status : {200, 201, 300, 304, 309, 399}) {
    server.answer(rawReply("HTTP/1.1 " + std::to_string(status) +
                               " Text\r\nLocation: /new\r\nContent-Length: 0\r\n\r\n",
                           End::kKeepOpen));

    EXPECT_EQ(status, statusOf(postTo("/")));
  }
  EXPECT_EQ(6u, server.requests().size());
}

TEST_F(HttpClientCurlTest, AnEmptyLocationIsNotFollowed) {
  server.answer(replyWith(302, "body", {{"Location", ""}}));

  const HttpReply reply = postTo("/");

  EXPECT_EQ(302, statusOf(reply));
  EXPECT_EQ("body", reply.body);
}

TEST_F(HttpClientCurlTest, FollowsTwentyRedirectsAndNoMore) {
  int left = 20;
  server.answer([&](const ReceivedRequest&) {
    return left-- == 0 ? replyWith(200, "arrived") : replyWith(307, "", {{"Location", "/again"}});
  });

  EXPECT_EQ("arrived", postTo("/").body);
  EXPECT_EQ(-1007, codeOf(replyTo(replyWith(307, "", {{"Location", "/again"}}))));
  EXPECT_EQ(21u + 21u, server.requests().size());
}

TEST_F(HttpClientCurlTest, IsNotLedAwayFromHttps) {
  const std::pair<std::string, int> cases[] = {
      {"http://" + server.authority() + "/", -1022},
      {"ftp://127.0.0.1/", -1002},
      {"file:///etc/hostname", -1002},
      {"javascript:alert(1)", -1002},
      {"https://127.0.0.1:99999/", -1000},
  };
  for (const auto& [location, code] : cases) {
    server.answer(replyWith(307, "", {{"Location", location}}));

    const HttpReply reply = postTo("/");

    EXPECT_EQ(code, codeOf(reply)) << location;
    ASSERT_TRUE(reply.error) << location;
    EXPECT_EQ(location, reply.error->userInfo[0].second);
  }
  EXPECT_EQ(5, server.connections());
}

// Connections that fail.

TEST_F(HttpClientCurlTest, AServerThatIsNotThereRefuses) {
  const ClosedPort closed;

  EXPECT_EQ(-1004, codeOf(send(post("https://" + closed.authority() + "/"))));
}

// No resolver has to be asked for a name with a label of more than 63 letters.
TEST_F(HttpClientCurlTest, AnUnknownNameHasNoServer) {
  EXPECT_EQ(-1003, codeOf(send(post("https://" + std::string(64, 'x') + ".invalid/"))));
}

TEST_F(HttpClientCurlTest, WithoutEncryptionThereIsNoSecureConnection) {
  for (const auto fault : {ConnectionFault::kResetInHandshake, ConnectionFault::kPlainText}) {
    server.setFault(fault);

    EXPECT_EQ(-1200, codeOf(postTo("/"))) << static_cast<int>(fault);
  }
}

TEST_F(HttpClientCurlTest, AResetAtOnceIsNoConnection) {
  server.setFault(ConnectionFault::kResetOnAccept);

  EXPECT_THAT(codeOf(postTo("/")), AnyOf(-1004, -1200));
}

TEST_F(HttpClientCurlTest, AConnectionThatBreaksLaterIsLost) {
  server.setFault(ConnectionFault::kResetAfterHandshake);
  EXPECT_EQ(-1005, codeOf(postTo("/"))) << "before the request";

  server.setFault(ConnectionFault::kResetAfterHead);
  EXPECT_EQ(-1005, codeOf(send({"POST", server.url("/"), {}, std::string(4'000'000, 'x')})))
      << "in the body of the request";
}

TEST_F(HttpClientCurlTest, AReplyThatBreaksOffIsAConnectionLost) {
  for (const char* bytes :
       {"", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 100 Continue\r\n\r\n",
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nX: 1\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{"}) {
    for (const End end : {End::kClose, End::kCut, End::kReset}) {
      EXPECT_EQ(-1005, codeOf(replyTo(rawReply(bytes, end))))
          << bytes << " / " << static_cast<int>(end);
    }
  }
}

TEST_F(HttpClientCurlTest, AReplyThatIsNotHttpCannotBeParsed) {
  for (const char* bytes : {"SSH-2.0-Server\r\n\r\n", "<html></html>", "HTTP/7.7 200 OK\r\n\r\n",
                            "HTTP/1.1 OK\r\n\r\n"}) {
    EXPECT_EQ(-1017, codeOf(replyTo(rawReply(bytes, End::kClose)))) << bytes;
  }
}

// Certificates.

TEST_F(HttpClientCurlTest, AnInvalidCertificateIsRefused) {
  for (const auto flaw :
       {CertificateFlaw::kExpired, CertificateFlaw::kSelfSigned, CertificateFlaw::kWrongHost}) {
    const HttpsServer other(flaw);
    authorities.set(other.caFile());

    const HttpReply reply = send(post(other.url("/")));

    EXPECT_EQ(-1202, codeOf(reply)) << static_cast<int>(flaw);
    ASSERT_TRUE(reply.error);
    EXPECT_EQ(
        "The certificate for this server is invalid. You might be connecting to a server that is "
        "pretending to be “127.0.0.1” which could put your confidential information at risk.",
        reply.error->localizedDescription);
    EXPECT_EQ(0u, other.requests().size());
  }
}

TEST_F(HttpClientCurlTest, AsksTheEnvironmentForTheAuthoritiesWithEachRequest) {
  const HttpsServer other;
  EXPECT_EQ(200, statusOf(postTo("/")));
  EXPECT_EQ(-1202, codeOf(send(post(other.url("/")))));
  EXPECT_EQ(0u, other.requests().size());

  authorities.set(other.caFile());

  EXPECT_EQ(200, statusOf(send(post(other.url("/")))));
  EXPECT_EQ(-1202, codeOf(postTo("/")));
}

TEST_F(HttpClientCurlTest, AuthoritiesThatCannotBeReadMakeNoSecureConnection) {
  authorities.set("/nowhere/authorities.pem");

  EXPECT_EQ(-1200, codeOf(postTo("/")));
}

TEST_F(HttpClientCurlTest, ReadsAFileOfAuthoritiesAgainThatHasChangedAndKeepsThemWhenItGoes) {
  const HttpsServer other;
  const TemporaryFolder folder;
  const std::string file = folder.path() + "/authorities";
  std::filesystem::copy_file(other.caFile(), file);
  authorities.set(file);
  EXPECT_EQ(-1202, codeOf(postTo("/")));

  std::filesystem::remove(file);
  std::filesystem::copy_file(server.caFile(), file);
  EXPECT_EQ(200, statusOf(postTo("/")));
  std::filesystem::remove(file);

  EXPECT_EQ(200, statusOf(postTo("/")));
}

// Time-outs.

TEST_F(HttpClientCurlTest, AConnectionThatDoesNotComeAboutTimesOut) {
  server.setFault(ConnectionFault::kNoHandshake);

  EXPECT_EQ(-1001, codeOf(postWithin({.connect = 300ms})));
}

TEST_F(HttpClientCurlTest, AReplyThatStallsTimesOut) {
  for (const char* bytes :
       {"", "HTTP/1.1 200 OK\r\nX", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{"}) {
    server.answer(rawReply(bytes, End::kStall));

    EXPECT_EQ(-1001, codeOf(postWithin({.idle = 300ms}))) << bytes;
  }
}

TEST_F(HttpClientCurlTest, AStallTimesOutAlsoWhenNothingIsSentUp) {
  server.answer(rawReply("", End::kStall));
  HttpClientCurl other(pool, userAgent, {.idle = 300ms});

  EXPECT_EQ(-1001, codeOf(await(start(other, {"GET", server.url("/"), {}, ""}))));
}

TEST_F(HttpClientCurlTest, ASlowUploadThatMovesDoesNotTimeOut) {
  server.setFault(ConnectionFault::kSlowReader);
  HttpClientCurl other(pool, userAgent, {.idle = 2s});

  const HttpReply reply =
      await(start(other, {"POST", server.url("/"), {}, std::string(32'000'000, 'x')}));

  EXPECT_EQ(200, statusOf(reply));
}

TEST_F(HttpClientCurlTest, SlowHeadersAndASlowBodyThatMoveDoNotTimeOut) {
  const auto slowly = [](std::string head, const std::string& piece, std::string last) {
    ServerReply reply;
    reply.pieces.assign(34, piece);
    reply.pieces.insert(reply.pieces.begin(), std::move(head));
    reply.pieces.push_back(std::move(last));
    reply.pause = 100ms;
    return reply;
  };
  server.answer([&](const ReceivedRequest& request) {
    if (request.target == "/body") {
      return slowly("HTTP/1.1 200 OK\r\nContent-Length: 35\r\n\r\n", "x", "y");
    }
    return slowly("HTTP/1.1 200 OK\r\n", "X: 1\r\n", "Content-Length: 0\r\n\r\n");
  });
  HttpClientCurl other(pool, userAgent, {.connect = 3s, .idle = 3s});

  std::future<HttpReply> slowBody = start(other, post(server.url("/body")));
  std::future<HttpReply> slowHeaders = start(other, post(server.url("/headers")));

  EXPECT_EQ(std::string(34, 'x') + "y", await(std::move(slowBody)).body);
  EXPECT_EQ(200, statusOf(await(std::move(slowHeaders))));
}

TEST_F(HttpClientCurlTest, ABodyThatMovesForTooLongTimesOut) {
  server.answer(endless({"HTTP/1.1 200 OK\r\n\r\n", "x"}, 20ms));

  EXPECT_EQ(-1001, codeOf(postWithin({.resource = 500ms})));
}

TEST_F(HttpClientCurlTest, TheTimeOfTheWholeRequestGoesOnOverRedirects) {
  server.answer([](const ReceivedRequest&) {
    ServerReply reply = replyWith(307, "", {{"Location", "/again"}});
    reply.pieces.insert(reply.pieces.begin(), "HTTP/1.1 100 Continue\r\n\r\n");
    reply.pause = 100ms;
    return reply;
  });

  EXPECT_EQ(-1001, codeOf(postWithin({.resource = 700ms})));
}

// Threads.

TEST_F(HttpClientCurlTest, CompletesOnAnotherThread) {
  for (const std::string& url : {server.url("/"), std::string("ftp://127.0.0.1/")}) {
    std::promise<std::thread::id> thread;

    client.upload(post(url), [&](HttpReply) { thread.set_value(std::this_thread::get_id()); });

    EXPECT_NE(std::this_thread::get_id(), thread.get_future().get());
  }
}

TEST_F(HttpClientCurlTest, ABusyCompletionBlocksNoOther) {
  std::latch bothComplete(2);
  std::promise<void> through[2];

  for (std::promise<void>& each : through) {
    client.upload(post(server.url("/")), [&](HttpReply) {
      bothComplete.arrive_and_wait();
      each.set_value();
    });
  }

  for (std::promise<void>& each : through) {
    EXPECT_EQ(std::future_status::ready, each.get_future().wait_for(kPatience));
  }
}

TEST_F(HttpClientCurlTest, ACompletionMayStartTheNextRequest) {
  std::promise<HttpReply> second;

  client.upload(post(server.url("/1")), [&](HttpReply) {
    client.upload(post(server.url("/2")),
                  [&](HttpReply reply) { second.set_value(std::move(reply)); });
  });

  EXPECT_EQ(200, statusOf(await(second.get_future())));
}

// Counts what is open only when the threads of the requests have ended.
TEST_F(HttpClientCurlTest, ManyRequestsCompleteOnceEachAndLeaveNothingBehind) {
  const auto openAfterRequests = [&](int count) {
    std::vector<std::atomic<int>> completions(static_cast<std::size_t>(count));
    CountedThreads poolThreads;
    {
      ThreadPool otherPool(poolThreads.starter(), 10ms);
      HttpClientCurl other(otherPool, userAgent);
      std::latch allComplete(count);
      for (std::atomic<int>& completed : completions) {
        other.upload(post(server.url("/")), [&](HttpReply reply) {
          if (statusOf(reply) == 200) ++completed;
          allComplete.count_down();
        });
      }
      allComplete.wait();
    }
    EXPECT_TRUE(poolThreads.waitUntilNoneRuns());
    EXPECT_TRUE(server.waitUntilDeserted());
    EXPECT_THAT(completions, Each(Eq(1)));
    return openDescriptors();
  };

  const std::size_t afterOne = openAfterRequests(1);

  EXPECT_EQ(afterOne, openAfterRequests(200));
}

TEST_F(HttpClientCurlTest, ADestroyedClientCancelsWithoutCompletion) {
  server.answer(rawReply("", End::kStall));
  CountedThreads poolThreads;
  std::atomic<int> completions = 0;
  {
    ThreadPool otherPool(poolThreads.starter(), 10ms);
    HttpClientCurl other(otherPool, userAgent);
    other.upload(post(server.url("/")), [&](HttpReply) { ++completions; });
    ASSERT_TRUE(server.waitForRequests(1));
  }

  EXPECT_TRUE(poolThreads.waitUntilNoneRuns());
  EXPECT_EQ(0, completions);
  EXPECT_TRUE(server.waitUntilDeserted());
}

// The end of the process.

class HttpClientCurlExitTest : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(HttpClientCurlExitTest, ExitWithRequestsUnderWayIsQuiet) {
  EXPECT_EXIT(
      {
        HttpsServer& server = *new HttpsServer;
        server.answer(rawReply("", End::kStall));
        setenv("SSL_CERT_FILE", server.caFile().c_str(), 1);
        setenv("no_proxy", "*", 1);
        auto& client = *new HttpClientCurl(*new ThreadPool, userAgent);
        for (int i = 0; i < 5; ++i) client.upload(post(server.url("/")), [](HttpReply) {});
        server.waitForRequests(3);
        std::filesystem::remove_all(std::filesystem::path(server.caFile()).parent_path());
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^$");
}

void leaveByStateOfOpenSsl() { _exit(OPENSSL_init_crypto(0, nullptr) == 1 ? 0 : 1); }

TEST_F(HttpClientCurlExitTest, OpenSslStaysUsableUntilTheProcessIsGone) {
  EXPECT_EXIT(
      {
        std::atexit(leaveByStateOfOpenSsl);
        auto& client = *new HttpClientCurl(*new ThreadPool, userAgent);
        await(start(client, post("https://" + ClosedPort().authority() + "/")));
        std::exit(2);
      },
      testing::ExitedWithCode(0), "");
}

// The user agent.

TEST(UserAgentTextTest, NamesTheAppAndTheLibraryEncoded) {
  EXPECT_EQ("Game/1.0 ZLNSessionReporting/7.0.0 Linux", userAgentText("Game", "1.0", "7.0.0"));
  EXPECT_EQ("M%C3%BCll%20%26%0D%0A%2FCo/1%202 ZLNSessionReporting/7 Linux",
            userAgentText("Müll &\r\n/Co", "1 2", "7"));
}

}  // namespace
}  // namespace zln
