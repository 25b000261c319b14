#include "collector/event_stream.h"

#include <utility>

#include "collector/json.h"

namespace zln::collector {
namespace {

constexpr std::size_t kMostListeners = 32;
constexpr std::size_t kLargestBacklog = 2 * 1024 * 1024;

}  // namespace

std::string eventText(const char* name, const nlohmann::json& data,
                      std::optional<std::int64_t> report) {
  std::string text = std::string("event: ") + name + "\n";
  if (report) text += "id: " + std::to_string(*report) + "\n";
  return text + "data: " + data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
         "\n\n";
}

std::optional<Event> EventStream::Listener::next(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [this] { return over_ || !waiting_.empty(); });
  if (waiting_.empty()) return std::nullopt;
  Event event = std::move(waiting_.front());
  waiting_.pop_front();
  size_ -= event.text.size();
  return event;
}

bool EventStream::Listener::isOver() {
  const std::lock_guard lock(mutex_);
  return over_ && waiting_.empty();
}

void EventStream::Listener::take(const Event& event) {
  const std::lock_guard lock(mutex_);
  if (over_) return;
  waiting_.push_back(event);
  size_ += event.text.size();
  over_ = size_ > kLargestBacklog;
  changed_.notify_one();
}

void EventStream::Listener::end() {
  const std::lock_guard lock(mutex_);
  over_ = true;
  changed_.notify_one();
}

std::shared_ptr<EventStream::Listener> EventStream::listen() {
  const std::lock_guard lock(mutex_);
  if (ended_ || listeners_.size() >= kMostListeners) return nullptr;
  return *listeners_.insert(std::make_shared<Listener>()).first;
}

void EventStream::leave(const std::shared_ptr<Listener>& listener) {
  const std::lock_guard lock(mutex_);
  listeners_.erase(listener);
}

void EventStream::publish(const char* name, const std::function<nlohmann::json()>& data,
                          std::optional<std::int64_t> report) {
  const std::lock_guard lock(mutex_);
  ++count_;
  changed_.notify_all();
  if (listeners_.empty()) return;
  const Event event{report, eventText(name, data(), report)};
  for (const auto& listener : listeners_) listener->take(event);
}

void EventStream::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
  for (const auto& listener : listeners_) listener->end();
}

std::uint64_t EventStream::count() {
  const std::lock_guard lock(mutex_);
  return count_;
}

bool EventStream::waitForMoreThan(std::uint64_t count,
                                  std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline, [&] { return ended_ || count_ > count; });
  return !ended_ && count_ > count;
}

}  // namespace zln::collector
