#include "collector/event_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "collector/json.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto kNoTime = milliseconds(0);
constexpr auto kLong = std::chrono::seconds(60);

std::string textOf(const std::optional<Event>& event) { return event ? event->text : "nothing"; }

TEST(EventStreamTest, TellsAllListenersInOrder) {
  EventStream events;
  const auto one = events.listen();
  const auto other = events.listen();

  events.publish(
      "report", [] { return json::parse(R"({"id":7})"); }, 7);
  events.publish("cleared", [] { return json::object(); });

  for (const auto& listener : {one, other}) {
    EXPECT_EQ("event: report\nid: 7\ndata: {\"id\":7}\n\n", textOf(listener->next(kLong)));
    EXPECT_EQ("event: cleared\ndata: {}\n\n", textOf(listener->next(kLong)));
    EXPECT_EQ("nothing", textOf(listener->next(kNoTime)));
  }
}

TEST(EventStreamTest, SaysWhichReportAnEventIsOf) {
  EventStream events;
  const auto listener = events.listen();

  events.publish(
      "report", [] { return json(); }, 7);
  events.publish("amended", [] { return json(); });

  EXPECT_EQ(7, listener->next(kLong)->report);
  EXPECT_EQ(std::nullopt, listener->next(kLong)->report);
}

TEST(EventStreamTest, MakesNoDataForNobody) {
  EventStream events;
  events.leave(events.listen());

  events.publish("report", []() -> json {
    ADD_FAILURE() << "nobody listens";
    return {};
  });

  EXPECT_EQ(1u, events.count());
}

TEST(EventStreamTest, GivesUpAListenerThatTakesTooLittle) {
  EventStream events;
  const auto slow = events.listen();
  const auto quick = events.listen();
  const std::string large(256 * 1024, 'a');

  for (int i = 0; i < 20; ++i) {
    events.publish("report", [&] { return json(large); });
    EXPECT_TRUE(quick->next(kLong)) << i;
  }

  int got = 0;
  while (slow->next(kNoTime)) ++got;
  EXPECT_TRUE(slow->isOver());
  EXPECT_FALSE(quick->isOver());
  EXPECT_LT(0, got);
  EXPECT_GT(10, got);
}

TEST(EventStreamTest, HasABoundedNumberOfListeners) {
  EventStream events;
  std::vector<std::shared_ptr<EventStream::Listener>> listeners;
  for (int i = 0; i < 32; ++i) listeners.push_back(events.listen());

  EXPECT_NE(nullptr, listeners.back());
  EXPECT_EQ(nullptr, events.listen());
  events.leave(listeners[0]);
  EXPECT_NE(nullptr, events.listen());
}

TEST(EventStreamTest, EndsForAll) {
  EventStream events;
  const auto listener = events.listen();
  events.publish("cleared", [] { return json(); });

  events.end();

  EXPECT_FALSE(listener->isOver());
  EXPECT_TRUE(listener->next(kLong));
  EXPECT_TRUE(listener->isOver());
  EXPECT_EQ("nothing", textOf(listener->next(kLong)));
  EXPECT_EQ(nullptr, events.listen());
  EXPECT_FALSE(events.waitForMoreThan(1, steady_clock::now() + kLong));
}

TEST(EventStreamTest, WaitsForMoreEvents) {
  EventStream events;
  events.publish("cleared", [] { return json(); });

  EXPECT_TRUE(events.waitForMoreThan(0, steady_clock::now() + kLong));
  EXPECT_FALSE(events.waitForMoreThan(1, steady_clock::now()));
}

}  // namespace
}  // namespace zln::collector
