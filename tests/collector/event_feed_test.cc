#include "collector/event_feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "collector/event_stream.h"
#include "collector/fault_list.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kGreeting[] = "retry: 1000\n: connected\n\n";

// A client that follows the events of a collector until it goes.
class Follower {
 public:
  explicit Follower(const RunningCollector& collector, const httplib::Headers& headers = {})
      : client_(collector.page()), following_([this, headers] { follow(headers); }) {}

  ~Follower() {
    {
      const std::lock_guard lock(mutex_);
      leaving_ = true;
    }
    client_->stop();
    following_.join();
  }

  // What has come, once the text is in it or the patience is over.
  std::string textWith(const std::string& text) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kPatience,
                      [&] { return over_ || text_.find(text) != std::string::npos; });
    return text_;
  }

  // Waits for the collector to end the answer.
  bool isEnded() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return over_; });
  }

 private:
  void follow(const httplib::Headers& headers) {
    client_->Get("/api/events", headers, [this](const char* piece, size_t size) {
      const std::lock_guard lock(mutex_);
      text_.append(piece, size);
      changed_.notify_all();
      return !leaving_;
    });
    const std::lock_guard lock(mutex_);
    over_ = true;
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;
  bool leaving_ = false;
  bool over_ = false;
  std::unique_ptr<httplib::Client> client_;
  std::thread following_;
};

TEST(EventFeedTest, TellsWhatHappens) {
  RunningCollector collector;
  Follower follower(collector);
  EXPECT_EQ(kGreeting, follower.textWith("connected\n\n"));

  collector.answerTo("/session", adAttempt());
  EXPECT_THAT(follower.textWith("\"id\":1"), HasSubstr("event: report\nid: 1\ndata: {"));
  collector.page()->Post("/api/faults", R"({"effect":"empty","times":1})", "application/json");
  EXPECT_THAT(follower.textWith("empty"), HasSubstr("event: faults\ndata: [{\"effect\":\"empty\""));
  collector.answerTo("/session", adAttempt());
  EXPECT_THAT(follower.textWith("\"left\":0"), HasSubstr("\"left\":0"));
  collector.page()->Put("/api/settings", R"({"values":{}})", "application/json");
  EXPECT_THAT(follower.textWith("event: settings"), HasSubstr("\"source\":\"api\""));
  collector.page()->Delete("/api/reports");
  EXPECT_THAT(follower.textWith("event: cleared"), HasSubstr("event: cleared\ndata: {}\n\n"));
}

// Whoever follows the events knows what is in the store, also when it is cleared meanwhile.
TEST(EventFeedTest, TellsOfAClearingInItsPlace) {
  RunningCollector collector;
  const auto listener = collector.parts().events.listen();
  std::atomic<bool> ending = false;
  std::vector<std::thread> games;
  for (int game = 0; game < 2; ++game) {
    games.emplace_back([&] {
      for (int i = 0; i < 500 && !ending; ++i) collector.desk().takeReport(adAttempt());
    });
  }
  for (int i = 0; i < 10; ++i) collector.desk().clear();
  ending = true;
  for (std::thread& game : games) game.join();

  std::set<std::int64_t> told;
  while (const auto event = listener->next(std::chrono::milliseconds(0))) {
    if (event->report) told.insert(*event->report);
    if (event->text.starts_with("event: cleared")) told.clear();
  }
  std::set<std::int64_t> stored;
  for (const ReportRow& row : collector.rows()) stored.insert(row.id);
  EXPECT_EQ(stored, told);
  collector.parts().events.leave(listener);
}

TEST(EventFeedTest, TellsOfAmendedReports) {
  RunningCollector collector;
  Follower follower(collector);
  follower.textWith("connected");
  const int id = collector.addFault(R"({"effect":"stall","seconds":3000})");
  collector.leaveDuringAnswer();

  collector.parts().faults.remove(id);

  EXPECT_THAT(follower.textWith("event: amended"), HasSubstr("event: amended\ndata: {"));
}

TEST(EventFeedTest, TellsOfStopsWhoseStartCameLater) {
  RunningCollector collector;
  collector.answerTo("/session", R"({"type":"ReportTypeSessionStop","sessionId":"a"})");
  Follower follower(collector);
  follower.textWith("connected");

  collector.answerTo("/session", R"({"type":"ReportTypeSessionStart","sessionId":"a"})");

  const std::string text = follower.textWith("\"id\":1,");
  EXPECT_THAT(text, HasSubstr("event: amended\ndata: {"));
  EXPECT_THAT(text, Not(HasSubstr("stop-without-start")));
}

TEST(EventFeedTest, SendsTheReportsThatWereMissedFirst) {
  RunningCollector collector;
  for (int i = 0; i < 3; ++i) collector.answerTo("/session", adAttempt());

  Follower follower(collector, {{"Last-Event-ID", "1"}});

  EXPECT_THAT(follower.textWith("id: 3"), HasSubstr("event: report\nid: 2\n"));
  collector.answerTo("/session", adAttempt());
  EXPECT_THAT(follower.textWith("id: 4"), Not(HasSubstr("id: 1\n")));
}

TEST(EventFeedTest, SaysSoWhenTooManyWereMissed) {
  RunningCollector collector;
  for (int i = 0; i < 1002; ++i) {
    collector.desk().takeReport("{}");
  }

  Follower far(collector, {{"Last-Event-ID", "1"}});
  Follower near(collector, {{"Last-Event-ID", "2"}});

  EXPECT_EQ(std::string(kGreeting) + "event: resync\ndata: {}\n\n", far.textWith("resync"));
  EXPECT_THAT(near.textWith("id: 1002"), Not(HasSubstr("resync")));
}

// What a client that found the store broken has listened to is not held for it.
TEST(EventFeedTest, ForgetsClientsThatItCannotServe) {
  RunningCollector collector;
  const auto folder = collector.certificates().authority.parent_path();
  std::filesystem::rename(folder / "reports.db", folder / "away");
  for (int i = 0; i < 40; ++i) {
    const auto answer = collector.page()->Get("/api/events", {{"Last-Event-ID", "1"}});
    ASSERT_TRUE(answer) << "answer " << i << ": " << httplib::to_string(answer.error());
    ASSERT_THAT(answer->body, HasSubstr("reports.db does not exist")) << "answer " << i;
  }
  std::filesystem::rename(folder / "away", folder / "reports.db");

  Follower follower(collector, {{"Last-Event-ID", "1"}});

  EXPECT_EQ(kGreeting, follower.textWith("connected\n\n"));
}

TEST(EventFeedTest, EndsWithTheCollector) {
  RunningCollector collector;
  Follower follower(collector);
  follower.textWith("connected");

  EXPECT_GT(std::chrono::seconds(20), collector.stop());

  EXPECT_TRUE(follower.isEnded());
}

TEST(EventFeedTest, TurnsTheThirtyThirdAway) {
  RunningCollector collector;
  std::vector<std::unique_ptr<Follower>> followers;
  for (int i = 0; i < 32; ++i) followers.push_back(std::make_unique<Follower>(collector));
  for (const auto& follower : followers) follower->textWith("connected");

  const auto result = collector.page()->Get("/api/events");

  ASSERT_TRUE(result);
  EXPECT_EQ(503, result->status);
  EXPECT_EQ(R"({"error":"too many follow the events"})", result->body);
}

// The status of an answer that is not waited for.
int statusOfEvents(const RunningCollector& collector) {
  int status = 0;
  collector.page()->Get(
      "/api/events", httplib::Headers(),
      [&](const httplib::Response& response) {
        status = response.status;
        return false;
      },
      [](const char*, size_t) { return false; });
  return status;
}

TEST(EventFeedTest, LetsOthersInWhenSomeLeave) {
  RunningCollector collector;
  for (int i = 0; i < 32; ++i) {
    Follower follower(collector);
    follower.textWith("connected");
  }
  const auto end = std::chrono::steady_clock::now() + kPatience;

  int status = 0;
  while (status != 200 && std::chrono::steady_clock::now() < end) {
    collector.answerTo("/session", adAttempt());
    status = statusOfEvents(collector);
  }

  EXPECT_EQ(200, status);
}

}  // namespace
}  // namespace zln::collector
