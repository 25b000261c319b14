// Every way in which the network can fail, against the real client and servers on the loopback
// interface: each is a row, and each request must end with its error or its response, once, in
// bounded time and memory, leave nothing behind, and let the next request through.
//
// A run of the whole program prints what each row came to, as a table.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <future>
#include <limits>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/http.h"
#include "platform/posix/http_curl.h"
#include "platform/posix/thread_pool.h"
#include "tests/network/process_tally.h"
#include "tests/network/scene.h"
#include "tests/support/counted_threads.h"
#include "transport/ZLNErrors.h"

namespace zln {

void PrintTo(const Row& row, std::ostream* out) { *out << row.what; }

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Shorter than the client's own time-outs: what takes so long hangs.
constexpr std::chrono::seconds kPatience{kSanitized ? 55 : 20};
// A reply may have 8 MiB, and growing text doubles.
constexpr std::size_t kMostKilobytes = 48 * 1024;
constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
constexpr milliseconds kIdleTime{10};

// A request that is under way or has ended.
class Request {
 public:
  Request(HttpClient& client, const std::string& url, std::size_t bodySize) {
    HttpRequest request{"POST", url, {{"Content-Type", "application/json"}}, R"({"a":1})"};
    if (bodySize > 0) request.body = std::string(bodySize, 'x');
    client.upload(std::move(request), [shared = shared_](HttpReply reply) {
      if (++shared->completions == 1) shared->reply.set_value(std::move(reply));
    });
  }

  // The reply; without response and error when it does not come.
  HttpReply await() {
    std::future<HttpReply> reply = shared_->reply.get_future();
    if (reply.wait_for(kPatience) == std::future_status::ready) return reply.get();
    ADD_FAILURE() << "no completion within " << kPatience.count() << " seconds";
    return {};
  }

  int completions() const { return shared_->completions; }

 private:
  struct Shared {
    std::promise<HttpReply> reply;
    std::atomic<int> completions = 0;
  };
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

bool hasIpv6() {
  try {
    boundSocket(IpFamily::kIpv6);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

void expectGoodRequest(HttpClient& client, Scene& scene, const char* when) {
  const HttpReply reply = Request(client, scene.server().url("/good"), 0).await();
  EXPECT_FALSE(reply.error) << when << ": error " << reply.error->code;
  EXPECT_EQ(R"({"success":true})", reply.body) << when;
}

bool isPermanent(const HttpReply& reply) {
  return reply.error && ZLNErrors::isNetworkErrorPermanent(*reply.error);
}

void expectError(const Outcome& outcome, const HttpReply& reply) {
  ASSERT_TRUE(reply.error) << "a response came: " << reply.response->statusCode << " "
                           << reply.body.substr(0, 100);
  EXPECT_NE(outcome.codes.end(),
            std::find(outcome.codes.begin(), outcome.codes.end(), reply.error->code))
      << "the error is " << reply.error->code << ", expected " << outcome.codes.front();
  EXPECT_EQ("NSURLErrorDomain", reply.error->domain);
  EXPECT_EQ(outcome.permanent, isPermanent(reply));
  EXPECT_FALSE(reply.response);
  EXPECT_EQ("", reply.body.substr(0, 100));
}

void expectResponse(const Outcome& outcome, const HttpReply& reply) {
  ASSERT_FALSE(reply.error) << "an error came: " << reply.error->code;
  EXPECT_EQ(outcome.status, reply.response->statusCode);
  EXPECT_EQ(outcome.body, reply.body);
}

void expectOutcome(const Outcome& outcome, const HttpReply& reply) {
  if (!reply.error && !reply.response) {
    ADD_FAILURE() << "neither an error nor a response came";
    return;
  }
  if (outcome.codes.empty()) {
    expectResponse(outcome, reply);
  } else {
    expectError(outcome, reply);
  }
}

milliseconds shortestOf(const HttpTimeouts& timeouts) {
  return std::min({timeouts.connect, timeouts.idle, timeouts.resource});
}

// The time-out that a row is about must not come early, but for what clocks differ in.
void expectTime(const Row& row, const HttpReply& reply, milliseconds time) {
  if (!reply.error || reply.error->code != url_error::kTimedOut) return;
  EXPECT_GE(time + milliseconds(10), shortestOf(row.timeouts));
}

// One line of the table.
void printFigures(const Row& row, const HttpReply& reply, milliseconds time,
                  std::size_t kilobytes) {
  const std::string came =
      reply.error ? std::to_string(reply.error->code)
                  : "status " + std::to_string(reply.response ? reply.response->statusCode : 0);
  const char* const kind = !reply.error         ? "response"
                           : isPermanent(reply) ? "permanent"
                                                : "temporary";
  std::printf("| %s | %s | %s | %d ms | %.1f MB |\n", row.what.c_str(), came.c_str(), kind,
              static_cast<int>(time.count()), static_cast<double>(kilobytes) / 1024);
}

class NetworkFailuresTest : public testing::TestWithParam<Row> {
 protected:
  // What the process keeps from its first request on is there before anything is counted.
  static void SetUpTestSuite() {
    Scene scene;
    CountedThreads threads;
    ThreadPool pool(threads.starter(), kIdleTime);
    HttpClientCurl client(pool, userAgent);
    expectGoodRequest(client, scene, "at the very first");
    threads.waitUntilNoneRuns();
  }

  static std::string userAgent() { return "Game/1.0 Reporter/7 Linux"; }

  // Runs the row with servers and a client of its own, on these threads.
  void run(const Row& row, CountedThreads& threads) {
    Scene scene;
    ThreadPool pool(threads.starter(), kIdleTime);
    HttpClientCurl client(pool, userAgent, row.timeouts);
    if (row.afterGoodRequest) expectGoodRequest(client, scene, "before");
    const std::string url = row.arrange(scene);

    const MemoryPeak memory;
    const Clock::time_point start = Clock::now();
    Request request(client, url, row.bodySize);
    const HttpReply reply = request.await();
    const auto time = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    const std::size_t kilobytes = memory.kilobytes();

    printFigures(row, reply, time, kilobytes);
    expectOutcome(row.outcome, reply);
    expectTime(row, reply, time);
    EXPECT_LE(kilobytes, kSanitized ? kNoLimit : kMostKilobytes + row.bodySize / 1024);
    if (row.check) row.check(scene);
    scene.mend();
    // On a loaded machine a good request may take longer than a row's short time-outs.
    HttpClientCurl patient(pool, userAgent);
    expectGoodRequest(shortestOf(row.timeouts) < kPatience ? patient : client, scene, "afterwards");
    // A thread that could call the completion again is gone.
    EXPECT_TRUE(threads.waitUntilNoneRuns());
    EXPECT_EQ(1, request.completions());
  }
};

TEST_P(NetworkFailuresTest, EndsAsItShould) {
  if (GetParam().needsIpv6 && !hasIpv6()) GTEST_SKIP() << "this machine has no ::1";
  const ProcessTally before = ProcessTally::now();
  {
    CountedThreads threads;

    run(GetParam(), threads);
  }

  EXPECT_EQ(before, waitUntilTallyIs(before));
}

// "reset on accept" becomes "ResetOnAccept".
std::string nameOf(const testing::TestParamInfo<Row>& info) {
  std::string name;
  bool begins = true;
  for (const char c : info.param.what) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) == 0) {
      begins = true;
    } else {
      name += begins ? static_cast<char>(std::toupper(byte)) : c;
      begins = false;
    }
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Connection, NetworkFailuresTest, testing::ValuesIn(connectionRows()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Reply, NetworkFailuresTest, testing::ValuesIn(replyRows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Compression, NetworkFailuresTest, testing::ValuesIn(compressionRows()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Http2, NetworkFailuresTest, testing::ValuesIn(http2Rows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Redirect, NetworkFailuresTest, testing::ValuesIn(redirectRows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Trust, NetworkFailuresTest, testing::ValuesIn(trustRows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Proxy, NetworkFailuresTest, testing::ValuesIn(proxyRows()), nameOf);

TEST(HttpTimeoutsTest, AreThoseThatAreDocumented) {
  const HttpTimeouts timeouts;

  EXPECT_EQ(milliseconds(60'000), timeouts.connect);
  EXPECT_EQ(milliseconds(60'000), timeouts.idle);
  EXPECT_EQ(milliseconds(604'800'000), timeouts.resource);
}

}  // namespace
}  // namespace zln
