#include "platform/notification_center.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace zln {

void NotificationCenter::add(const std::shared_ptr<void>& observer, Notification notification,
                             std::function<void()> handler) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [](const Entry& old) { return old.observer.expired(); });
  entries_.push_back({observer, notification, std::move(handler)});
}

void NotificationCenter::post(Notification notification) {
  for (const Entry& entry : entriesFor(notification)) {
    if (const auto observer = entry.observer.lock()) entry.handler();
  }
}

std::vector<NotificationCenter::Entry> NotificationCenter::entriesFor(Notification notification) {
  std::vector<Entry> found;
  std::lock_guard lock(mutex_);
  std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(found),
               [notification](const Entry& entry) { return entry.notification == notification; });
  return found;
}

}  // namespace zln
