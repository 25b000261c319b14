#include "platform/posix/background_tasks_posix.h"

#include <limits>
#include <utility>

namespace zln {

BackgroundTasksPosix::BackgroundTasksPosix(Dispatch& dispatch) : dispatch_(dispatch) {}

void BackgroundTasksPosix::setHooks(Hooks hooks) {
  std::lock_guard lock(mutex_);
  hooks_ = hooks;
}

void BackgroundTasksPosix::willExpire(BackgroundTaskId id) {
  // Looked up on the main thread, at the moment of telling: the task may end until then.
  dispatch_.mainSync([this, id] {
    for (const auto& expired : takeExpired(id)) expired();
  });
}

BackgroundTaskId BackgroundTasksPosix::begin(std::function<void()> expired) {
  const Hooks current = hooks();
  const BackgroundTaskId id = current ? current->begin(current->context) : nextId();
  if (id == kBackgroundTaskInvalid) return id;
  std::lock_guard lock(mutex_);
  tasks_.emplace(id, Task{current, std::move(expired)});
  return id;
}

void BackgroundTasksPosix::end(BackgroundTaskId id) {
  const auto task = take(id);
  if (task && task->hooks) task->hooks->end(id, task->hooks->context);
}

double BackgroundTasksPosix::remaining() {
  const Hooks current = hooks();
  return current ? current->remaining(current->context) : std::numeric_limits<double>::max();
}

BackgroundTasksPosix::Hooks BackgroundTasksPosix::hooks() {
  std::lock_guard lock(mutex_);
  return hooks_;
}

BackgroundTaskId BackgroundTasksPosix::nextId() {
  std::lock_guard lock(mutex_);
  return ++lastId_;
}

std::optional<BackgroundTasksPosix::Task> BackgroundTasksPosix::take(BackgroundTaskId id) {
  std::lock_guard lock(mutex_);
  const auto found = tasks_.lower_bound(id);
  if (found == tasks_.end() || found->first != id) return std::nullopt;
  Task task = std::move(found->second);
  tasks_.erase(found);
  return task;
}

std::vector<std::function<void()>> BackgroundTasksPosix::takeExpired(BackgroundTaskId id) {
  std::vector<std::function<void()>> handlers;
  while (auto task = take(id)) {
    if (task->expired) handlers.push_back(std::move(task->expired));
  }
  return handlers;
}

}  // namespace zln
