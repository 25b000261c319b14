#include "collector/event_feed.h"

#include <httplib.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "collector/event_stream.h"
#include "collector/json.h"
#include "collector/report_store.h"

namespace zln::collector {
namespace {

constexpr char kLastEventId[] = "Last-Event-ID";
constexpr int kMostMissed = 1000;
constexpr auto kSilence = std::chrono::seconds(15);
// A client that has lost its connection comes back after this many milliseconds.
constexpr char kGreeting[] = "retry: 1000\n: connected\n\n";
constexpr char kComment[] = ": still here\n\n";

std::optional<std::int64_t> lastSeen(const httplib::Request& request) {
  const std::string text = request.get_header_value(kLastEventId);
  std::int64_t id = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return id;
}

// What one client gets. It listens as long as this lives.
struct Feed {
  explicit Feed(EventStream& stream) : events(stream), listener(stream.listen()) {}
  ~Feed() {
    if (listener) events.leave(listener);
  }
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  EventStream& events;
  const std::shared_ptr<EventStream::Listener> listener;
  std::string first = kGreeting;  // Is written before all else.
  std::int64_t lastReport = 0;    // The last report in it.
};

// The reports after the last that a client saw; of too many that there are some.
void addMissed(std::int64_t seen, ReportStore& store, Feed& feed) {
  ReportQuery query;
  query.after = seen;
  query.limit = kMostMissed;
  const ReportList missed = store.list(query);
  if (missed.more) {
    feed.first += eventText("resync", nlohmann::json::object());
    return;
  }
  for (const ReportRow& row : missed.reports) {
    feed.first += eventText("report", toJson(row), row.id);
    feed.lastReport = row.id;
  }
}

bool writeText(const std::string& text, httplib::DataSink& sink) {
  return sink.write(text.data(), text.size());
}

// A report that came while the missed ones were looked up is among those.
bool isTold(const Event& event, const Feed& feed) {
  return event.report && *event.report <= feed.lastReport;
}

bool writeNext(Feed& feed, httplib::DataSink& sink) {
  if (!feed.first.empty()) return writeText(std::exchange(feed.first, ""), sink);
  const std::optional<Event> event = feed.listener->next(kSilence);
  if (event) return isTold(*event, feed) || writeText(event->text, sink);
  return !feed.listener->isOver() && writeText(kComment, sink);
}

}  // namespace

bool respondWithEvents(const httplib::Request& request, httplib::Response& response,
                       ReportStore& store, EventStream& events) {
  const auto feed = std::make_shared<Feed>(events);
  if (!feed->listener) return false;
  if (const auto seen = lastSeen(request)) addMissed(*seen, store, *feed);
  response.set_header("Cache-Control", "no-store");
  response.set_chunked_content_provider(
      "text/event-stream",
      [feed](std::size_t, httplib::DataSink& sink) { return writeNext(*feed, sink); });
  return true;
}

}  // namespace zln::collector
