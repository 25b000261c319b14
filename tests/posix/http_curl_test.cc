#include "platform/posix/http_curl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <future>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/url_errors.h"
#include "tests/support/counted_threads.h"
#include "tests/support/environment_variable.h"
#include "tests/support/https_server.h"
#include "tests/support/loopback_server.h"
#include "tests/support/sanitizers.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificates.h"

namespace zln {
namespace {

using namespace std::chrono_literals;
using End = ServerReply::End;
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

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
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

  // What the request comes to with a client that has these time-outs.
  HttpReply sendWithin(HttpTimeouts timeouts, HttpRequest request) {
    HttpClientCurl other(pool, userAgent, timeouts);
    return await(start(other, std::move(request)));
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

// The reply.

TEST_F(HttpClientCurlTest, GivesBodyStatusUrlAndHeadersThoseOfTheSameNameJoined) {
  server.answer(replyWith(200, R"({"success":true})",
                          {{"Via", "a"}, {"x-Odd-NAME", "a  b"}, {"via", "b"}, {"VIA", "c"}}));

  const HttpReply reply = postTo("/session?a=b");

  EXPECT_FALSE(reply.error);
  EXPECT_EQ(R"({"success":true})", reply.body);
  ASSERT_TRUE(reply.response);
  EXPECT_EQ(200, reply.response->statusCode);
  EXPECT_EQ(server.url("/session?a=b"), reply.response->url);
  EXPECT_THAT(reply.response->headers,
              ElementsAre(Pair("Via", "a, b, c"), Pair("x-Odd-NAME", "a  b"),
                          Pair("Content-Length", "16")));
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

// Limits. tests/network/ has the replies that have no end.

TEST_F(HttpClientCurlTest, TakesABodyOfEightMegabytesAndNoMore) {
  EXPECT_EQ(kMaxBodyBytes, replyTo(replyWith(200, std::string(kMaxBodyBytes, 'x'))).body.size());
  EXPECT_EQ(
      -1103,
      codeOf(replyTo(rawReply("HTTP/1.1 200 OK\r\nContent-Length: 8388609\r\n\r\n", End::kStall))));
}

TEST_F(HttpClientCurlTest, TakesAThousandLinesOfHeadersAndNoMore) {
  const auto replyOf = [](int lines, const std::string& line) {
    return rawReply("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n" + repeated(line, lines) + "\r\n",
                    End::kKeepOpen);
  };

  EXPECT_EQ(200, statusOf(replyTo(replyOf(997, "X: 1\r\n"))));
  EXPECT_EQ(-1103, codeOf(replyTo(replyOf(998, "X: 1\r\n"))));
  EXPECT_EQ(-1103, codeOf(replyTo(replyOf(6, "X: " + std::string(50'000, 'x') + "\r\n"))));
}

// URLs.

TEST_F(HttpClientCurlTest, AUrlThatMustNotBeAskedFailsWithoutAConnection) {
  const std::pair<int, std::vector<std::string>> rows[] = {
      {-1002,
       {"", "/session", "session", "127.0.0.1", "ftp://127.0.0.1/", "file:///etc/hostname", "://",
        "https", "mailto:a@b"}},
      {-1000,
       {"https:", "https:443/", "https:127.0.0.1", "https:///", "https://127.0.0.1:99999/",
        "https://127.0.0.1:x/", "https://127.0.0.1/\r\nX: 1",
        server.url("/") + std::string("\0x", 2)}},
      {-1022, {"http://" + server.authority() + "/", "HTTP://" + server.authority() + "/"}},
  };
  for (const auto& [code, urls] : rows) {
    for (const std::string& url : urls) {
      const HttpReply reply = send(post(url));

      EXPECT_EQ(urlError(code, url), reply.error) << url;
      EXPECT_FALSE(reply.response);
      EXPECT_EQ("", reply.body);
    }
  }
  EXPECT_EQ(0, server.connections());
  EXPECT_EQ(200, statusOf(send(post("HTTPS://" + server.authority() + "/"))));
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
  const std::string body(100'000, 'x');
  int connections = 0;
  for (const auto& [status, method, methodAfter] : rows) {
    SCOPED_TRACE(std::to_string(status) + " " + method);
    server.answer([status = status](const ReceivedRequest& request) {
      if (request.target != "/old") return replyWith(200, "arrived");
      return replyWith(status, "moved", {{"Location", "/new?a=b"}, {"X-Old", "1"}});
    });

    const HttpReply reply =
        send({method, server.url("/old"), {{"Content-Type", "text/a"}, {"X-Kept", "1"}}, body});

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
    EXPECT_TRUE(request.body == (bodyKept ? body : "")) << request.body.size() << " bytes";
    EXPECT_EQ(bodyKept ? "100000" : "", request.header("Content-Length"));
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

TEST_F(HttpClientCurlTest, AnErrorNamesTheUrlThatARedirectLedTo) {
  server.answer(replyWith(307, "", {{"Location", "ftp://127.0.0.1/"}}));

  EXPECT_EQ(urlError(-1002, "ftp://127.0.0.1/"), postTo("/").error);
}

// Certificates.

TEST_F(HttpClientCurlTest, AsksTheEnvironmentForTheAuthoritiesWithEachRequest) {
  const HttpsServer other;
  EXPECT_EQ(200, statusOf(postTo("/")));
  EXPECT_EQ(-1202, codeOf(send(post(other.url("/")))));
  EXPECT_EQ(0u, other.requests().size());

  authorities.set(other.caFile());

  EXPECT_EQ(200, statusOf(send(post(other.url("/")))));
  EXPECT_EQ(-1202, codeOf(postTo("/")));
}

// Sessions.

// Sequential requests, and which of them have resumed an earlier session.
class HttpSessionsTest : public HttpClientCurlTest {
 protected:
  void expectGood(const std::string& url) {
    const HttpReply reply = send(post(url));
    EXPECT_EQ(200, statusOf(reply)) << codeOf(reply);
  }
  void expectGood() { expectGood(server.url("/")); }

  static std::vector<bool> resumedAt(const HttpsServer& asked) {
    std::vector<bool> resumed;
    for (const ReceivedRequest& request : asked.requests()) resumed.push_back(request.isResumed);
    return resumed;
  }

  void trust(const std::string& pem) { std::ofstream(server.caFile()) << pem; }
};

TEST_F(HttpSessionsTest, ALaterConnectionResumesTheSessionOfAnEarlierOne) {
  for (int i = 0; i < 3; ++i) expectGood();

  EXPECT_THAT(resumedAt(server), ElementsAre(false, true, true));
  EXPECT_EQ(3, server.connections());
}

TEST_F(HttpSessionsTest, HostsOnOneAddressDoNotShareThem) {
  const std::string other = "https://localhost:" + std::to_string(server.port()) + "/";

  expectGood();
  expectGood(other);
  expectGood();
  expectGood(other);

  EXPECT_THAT(resumedAt(server), ElementsAre(false, false, true, true));
}

TEST_F(HttpSessionsTest, PortsOfOneHostDoNotShareThem) {
  HttpsServer other;
  other.show(server.chain());
  for (HttpsServer* each : {&server, &other}) {
    each->configure([](SSL_CTX* it) {
      std::string keys(80, 'k');
      ASSERT_EQ(1, SSL_CTX_set_tlsext_ticket_keys(it, keys.data(), keys.size()));
    });
  }

  expectGood();
  expectGood(other.url("/"));

  EXPECT_THAT(resumedAt(other), ElementsAre(false));
}

TEST_F(HttpSessionsTest, AChangeOfTheAuthoritiesEndsThem) {
  const TestAuthority another;
  expectGood();

  trust(server.chain().rootPem() + another.certificatePem());
  expectGood();
  EXPECT_THAT(resumedAt(server), ElementsAre(false, false));

  trust(another.certificatePem());
  EXPECT_EQ(-1202, codeOf(postTo("/")));
}

TEST_F(HttpSessionsTest, AFolderOfAuthoritiesThatChangesEndsThem) {
  const TemporaryFolder folder;
  const EnvironmentVariable folders("SSL_CERT_DIR", folder.path());
  expectGood();

  std::ofstream(folder.path() + "/0a1b2c3d.0") << server.chain().rootPem();
  expectGood();
  expectGood();

  EXPECT_THAT(resumedAt(server), ElementsAre(false, false, true));
}

TEST_F(HttpSessionsTest, AServerThatKnowsThemNoMoreIsAskedWhoItIs) {
  expectGood();

  server.show(server.chain());
  expectGood();
  EXPECT_THAT(resumedAt(server), ElementsAre(false, false));

  for (const CertificateFlaw flaw : {CertificateFlaw::kWrongHost, CertificateFlaw::kExpired}) {
    const CertificateChain chain(flaw);
    server.show(chain);
    trust(server.chain().rootPem() + chain.rootPem());
    EXPECT_EQ(-1202, codeOf(postTo("/")));
  }
}

TEST_F(HttpSessionsTest, AServerThatGivesNoneIsGreetedAnewEachTime) {
  server.configure([](SSL_CTX* it) {
    SSL_CTX_set_num_tickets(it, 0);
    SSL_CTX_set_session_cache_mode(it, SSL_SESS_CACHE_OFF);
  });

  for (int i = 0; i < 3; ++i) expectGood();

  EXPECT_THAT(resumedAt(server), ElementsAre(false, false, false));
}

// The callback for a session that is offered: what it says of the ticket.
SSL_TICKET_RETURN sayOfTicket(SSL*, SSL_SESSION*, const unsigned char*, std::size_t,
                              SSL_TICKET_STATUS, void* answer) {
  return *static_cast<SSL_TICKET_RETURN*>(answer);
}

TEST_F(HttpSessionsTest, AServerThatForgetsOneGivesTheNext) {
  static SSL_TICKET_RETURN answer = SSL_TICKET_RETURN_IGNORE;
  expectGood();

  server.configure(
      [](SSL_CTX* it) { SSL_CTX_set_session_ticket_cb(it, nullptr, &sayOfTicket, &answer); });
  expectGood();
  answer = SSL_TICKET_RETURN_USE;
  expectGood();

  EXPECT_THAT(resumedAt(server), ElementsAre(false, false, true));
}

// A ticket that no one can read, the server included.
int useAKeyOfTheMoment(SSL*, unsigned char* name, unsigned char* vector, EVP_CIPHER_CTX* cipher,
                       EVP_MAC_CTX* mac, int encrypts) {
  if (encrypts == 0) return 0;
  unsigned char key[32];
  char digest[] = "SHA256";
  for (const auto& [bytes, size] : {std::pair(key, 32), {name, 16}, {vector, 16}}) {
    if (RAND_bytes(bytes, size) != 1) return -1;
  }
  const OSSL_PARAM settings[] = {
      OSSL_PARAM_construct_octet_string(OSSL_MAC_PARAM_KEY, key, sizeof key),
      OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
      OSSL_PARAM_construct_end()};
  return EVP_EncryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, key, vector) == 1 &&
                 EVP_MAC_CTX_set_params(mac, settings) == 1
             ? 1
             : -1;
}

int failAtATicket(SSL* ssl, unsigned char* name, unsigned char* vector, EVP_CIPHER_CTX* cipher,
                  EVP_MAC_CTX* mac, int encrypts) {
  return encrypts == 0 ? -1 : useAKeyOfTheMoment(ssl, name, vector, cipher, mac, encrypts);
}

TEST_F(HttpSessionsTest, OneThatAConnectionFailedWithIsNotOfferedAgain) {
  server.configure([](SSL_CTX* it) { SSL_CTX_set_tlsext_ticket_key_evp_cb(it, &failAtATicket); });
  expectGood();

  EXPECT_NE(0, codeOf(postTo("/")));
  expectGood();

  EXPECT_THAT(resumedAt(server), ElementsAre(false, false));
}

TEST_F(HttpSessionsTest, OneThatAReplyWasLostWithIsNotOfferedAgain) {
  expectGood();
  server.play({{handshake(), readRequest(), reset()}, {handshake(), readRequest(), reset()}});
  EXPECT_NE(0, codeOf(postTo("/")));

  EXPECT_NE(0, codeOf(postTo("/")));

  EXPECT_THAT(resumedAt(server), ElementsAre(false, true, false));
}

TEST_F(HttpSessionsTest, ATicketMayBeGarbage) {
  server.configure(
      [](SSL_CTX* it) { SSL_CTX_set_tlsext_ticket_key_evp_cb(it, &useAKeyOfTheMoment); });

  for (int i = 0; i < 3; ++i) expectGood();

  EXPECT_THAT(resumedAt(server), ElementsAre(false, false, false));
}

TEST_F(HttpSessionsTest, AThousandConnectionsThatNeverResumeLeaveNothingBehind) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer keeps memory in its own way";
  server.configure(
      [](SSL_CTX* it) { SSL_CTX_set_tlsext_ticket_key_evp_cb(it, &useAKeyOfTheMoment); });
  server.play(
      {handshake(), readHead(), say("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), stall()});
  const auto inUseAfter = [&](int requests) {
    for (int i = 0; i < requests; ++i) expectGood();
    EXPECT_TRUE(server.waitUntilDeserted());
    return mallinfo2().uordblks;
  };
  const std::size_t before = inUseAfter(100);

  // Caches of the allocator and of OpenSSL fill up; a session and its certificates are 4 kB at
  // least.
  EXPECT_LT(inUseAfter(900), before + 1024 * 1024);
}

// Time-outs.

TEST_F(HttpClientCurlTest, AStallTimesOutAlsoWhenNothingIsSentUp) {
  server.answer(rawReply("", End::kStall));

  EXPECT_EQ(-1001, codeOf(sendWithin({.idle = 300ms}, {"GET", server.url("/"), {}, ""})));
}

TEST_F(HttpClientCurlTest, ASlowUploadThatMovesDoesNotTimeOut) {
  server.play({handshake(), readRequest(2ms), say("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"),
               stall()});

  const HttpReply reply =
      sendWithin({.idle = 2s}, {"POST", server.url("/"), {}, std::string(32'000'000, 'x')});

  EXPECT_EQ(200, statusOf(reply));
}

TEST_F(HttpClientCurlTest, TheTimeOfTheWholeRequestGoesOnOverRedirects) {
  server.play(
      {handshake(), readRequest(),
       sayByteByByte("HTTP/1.1 307 Moved\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n", 2ms),
       stall()});

  EXPECT_EQ(-1001, codeOf(sendWithin({.resource = 700ms}, post(server.url("/")))));
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

TEST_F(HttpClientCurlTest, ManyRequestsCompleteOnceEach) {
  std::array<std::atomic<int>, 200> completions{};
  CountedThreads poolThreads;
  {
    ThreadPool otherPool(poolThreads.starter(), 10ms);
    HttpClientCurl other(otherPool, userAgent);
    std::latch allComplete(completions.size());
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
}

TEST_F(HttpClientCurlTest, ARequestOutlivesItsClient) {
  std::promise<HttpReply> reply;
  {
    HttpClientCurl other(pool, userAgent);
    other.upload(post(server.url("/")), [&](HttpReply came) { reply.set_value(std::move(came)); });
  }

  EXPECT_EQ(200, statusOf(reply.get_future().get()));
}

// The end of the process.

void leaveByStateOfOpenSsl() { _exit(OPENSSL_init_crypto(0, nullptr) == 1 ? 0 : 1); }

TEST(HttpClientCurlExitTest, OpenSslStaysUsableUntilTheProcessIsGone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::atexit(leaveByStateOfOpenSsl);
        auto& client = *new HttpClientCurl(*new ThreadPool, userAgent);
        const FileDescriptor closed = boundSocket();
        await(start(client, post("https://127.0.0.1:" + std::to_string(portOf(closed)) + "/")));
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
