#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>

namespace zln::collector {

// Something that happened, as it goes over the wire. A report says which one it is.
struct Event {
  std::optional<std::int64_t> report;
  std::string text;
};

std::string eventText(const char* name, const nlohmann::json& data,
                      std::optional<std::int64_t> report = {});

// Tells those who listen what happens, as server-sent events. Any thread may call it.
class EventStream {
 public:
  // What one listener has not yet taken. A listener that is too slow is given up: it comes back and
  // says what it saw last.
  class Listener {
   public:
    // Waits for something to be told. Nothing when there was none for so long.
    std::optional<Event> next(std::chrono::milliseconds patience);
    // Whether there is nothing more to be taken.
    bool isOver();

   private:
    friend class EventStream;

    void take(const Event& event);
    void end();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> waiting_;
    std::size_t size_ = 0;
    bool over_ = false;
  };

  // Nothing when there are as many listeners as may be.
  std::shared_ptr<Listener> listen();
  void leave(const std::shared_ptr<Listener>& listener);

  // `data` is made only when somebody listens.
  void publish(const char* name, const std::function<nlohmann::json()>& data,
               std::optional<std::int64_t> report = {});
  // Ends all listening, and lets no one begin.
  void end();

  // How many events there have been.
  std::uint64_t count();
  // Returns when there have been more events than `count`, false when the time is over first or all
  // has ended.
  bool waitForMoreThan(std::uint64_t count, std::chrono::steady_clock::time_point deadline);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::shared_ptr<Listener>> listeners_;
  std::uint64_t count_ = 0;
  bool ended_ = false;
};

}  // namespace zln::collector
