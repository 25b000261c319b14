#include "platform/notification_center.h"

#include <utility>

namespace zln {

void NotificationCenter::add(const std::shared_ptr<void>& observer, Notification notification,
                             std::function<void()> handler) {
  auto entry = std::make_shared<Entry>();
  entry->observer = observer;
  entry->identity = observer.get();
  entry->notification = notification;
  entry->handler = std::move(handler);

  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [](const auto& old) { return old->observer.expired(); });
  entries_.push_back(std::move(entry));
}

void NotificationCenter::removeObserver(const void* observer) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [observer](const auto& entry) {
    if (entry->identity != observer) return false;
    entry->removed = true;
    return true;
  });
}

void NotificationCenter::post(Notification notification) {
  for (const auto& entry : entriesFor(notification)) {
    if (const auto observer = liveObserver(*entry)) entry->handler();
  }
}

std::vector<std::shared_ptr<NotificationCenter::Entry>> NotificationCenter::entriesFor(
    Notification notification) {
  std::vector<std::shared_ptr<Entry>> found;
  std::lock_guard lock(mutex_);
  for (const auto& entry : entries_) {
    if (entry->notification == notification) found.push_back(entry);
  }
  return found;
}

std::shared_ptr<void> NotificationCenter::liveObserver(const Entry& entry) {
  std::lock_guard lock(mutex_);
  return entry.removed ? nullptr : entry.observer.lock();
}

}  // namespace zln
