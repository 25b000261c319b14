#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace zln {

// What happens to the application.
enum class Notification {
  applicationWillResignActive,
  applicationDidBecomeActive,
  applicationWillEnterForeground,
  applicationDidEnterBackground,
  applicationWillTerminate,
};

// Tells observers of the application's life. Observers are held weakly: one that is gone is not
// told and need not take itself off. Any thread may call it.
class NotificationCenter {
 public:
  // Calls `handler` on `observer` at every later post of `notification`. An observer that is added
  // twice is told twice.
  template <typename Observer>
  void addObserver(const std::shared_ptr<Observer>& observer, Notification notification,
                   void (Observer::*handler)()) {
    Observer* target = observer.get();
    add(observer, notification, [target, handler] { (target->*handler)(); });
  }

  // Tells, on the calling thread and in the order of adding, those who observe at this moment.
  // Returns when all have been told. One that goes meanwhile, before its turn, is left out.
  void post(Notification notification);

 private:
  struct Entry {
    std::weak_ptr<void> observer;
    Notification notification;
    std::function<void()> handler;
  };

  void add(const std::shared_ptr<void>& observer, Notification notification,
           std::function<void()> handler);
  std::vector<Entry> entriesFor(Notification notification);

  std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace zln
