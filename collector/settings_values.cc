#include "collector/settings_values.h"

#include <stdexcept>
#include <utility>

#include "collector/json.h"
#include "collector/settings_lint.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestSettings = 64 * 1024;

json brokenFile() {
  return {
      {"key", ""},
      {"severity", "error"},
      {"text", "the settings file holds no JSON object now; what it held before is handed out"}};
}

}  // namespace

json SettingsValues::current() {
  const std::lock_guard lock(mutex_);
  return currentLocked();
}

void SettingsValues::set(json values) {
  if (!values.is_object()) throw std::invalid_argument("\"values\" must be a JSON object");
  if (values.dump().size() > kLargestSettings) {
    throw std::invalid_argument("\"values\" may have 64 KiB");
  }
  const std::lock_guard lock(mutex_);
  set_ = std::make_shared<const json>(std::move(values));
}

void SettingsValues::reset() {
  const std::lock_guard lock(mutex_);
  set_.reset();
}

json SettingsValues::describe() {
  const std::lock_guard lock(mutex_);
  const json values = currentLocked();
  json lint = lintSettings(values);
  if (!set_ && file_.isBroken()) lint.insert(lint.begin(), brokenFile());
  return {{"values", values}, {"source", sourceLocked()}, {"lint", lint}};
}

const json& SettingsValues::currentLocked() { return set_ ? *set_ : file_.current(); }

const char* SettingsValues::sourceLocked() const {
  if (set_) return "api";
  return file_.exists() ? "file" : "none";
}

}  // namespace zln::collector
