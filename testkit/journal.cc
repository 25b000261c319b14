#include "testkit/journal.h"

#include <algorithm>

namespace zln {

void Journal::add(const std::string& call) {
  // Outside the lock: what it does may add calls.
  if (const auto act = takeHook(call)) act();
}

void Journal::begin() {
  std::lock_guard lock(mutex_);
  isRecording_ = true;
  calls_.clear();
}

std::vector<std::string> Journal::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(calls_, {});
}

void Journal::when(std::string beginning, std::function<void()> act) {
  std::lock_guard lock(mutex_);
  hooks_.emplace_back(std::move(beginning), std::move(act));
}

std::vector<std::string> Journal::dropHooks() {
  std::lock_guard lock(mutex_);
  std::vector<std::string> beginnings;
  for (const auto& [beginning, act] : std::exchange(hooks_, {})) beginnings.push_back(beginning);
  return beginnings;
}

// Records the call and takes its hook off: what that does may make such a call again.
std::function<void()> Journal::takeHook(const std::string& call) {
  std::lock_guard lock(mutex_);
  if (isRecording_) calls_.push_back(call);
  const auto hook = std::find_if(hooks_.begin(), hooks_.end(), [&](const auto& candidate) {
    return call.starts_with(candidate.first);
  });
  if (hook == hooks_.end()) return nullptr;
  std::function<void()> act = std::move(hook->second);
  hooks_.erase(hook);
  return act;
}

}  // namespace zln
