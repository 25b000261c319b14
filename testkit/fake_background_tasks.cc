#include "testkit/fake_background_tasks.h"

#include <string>
#include <utility>

namespace zln {

BackgroundTaskId FakeBackgroundTasks::begin(std::function<void()> expired) {
  ++begun_;
  const bool isRefused = std::exchange(nextInvalid, false);
  const BackgroundTaskId id = isRefused ? kBackgroundTaskInvalid : ++lastId_;
  if (!isRefused) open_.emplace(id, std::move(expired));
  note(journal_, "begin ", std::to_string(id));
  return id;
}

void FakeBackgroundTasks::end(BackgroundTaskId id) {
  note(journal_, "end ", std::to_string(id));
  ended_.push_back(id);
  // Its handler is released after the task is off the list: what it held may come back here.
  const auto task = open_.extract(id);
}

double FakeBackgroundTasks::remaining() {
  note(journal_, "remaining");
  return remainingTime;
}

void FakeBackgroundTasks::expire(BackgroundTaskId id) {
  const auto task = open_.find(id);
  if (task == open_.end()) return;
  // A copy, for the handler is likely to end its own task.
  const auto expired = task->second;
  dispatch_.asMain(expired);
}

std::vector<BackgroundTaskId> FakeBackgroundTasks::open() const {
  std::vector<BackgroundTaskId> ids;
  for (const auto& [id, expired] : open_) ids.push_back(id);
  return ids;
}

}  // namespace zln
