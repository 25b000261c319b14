#pragma once

#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <utility>

#include "collector/settings_file.h"

namespace zln::collector {

// The settings that games are answered with: what somebody has set while the collector runs, else
// what the file holds. Any thread may call it.
class SettingsValues {
 public:
  explicit SettingsValues(SettingsFile file) : file_(std::move(file)) {}

  nlohmann::json current();
  // From now on these are handed out, whatever the file holds. Throws std::invalid_argument with a
  // text for people when they are no JSON object, or too large a one.
  void set(nlohmann::json values);
  // Back to the file.
  void reset();
  // The values with their source and what is to be said about them, as the interface for programs
  // shows it.
  nlohmann::json describe();

 private:
  const nlohmann::json& currentLocked();
  const char* sourceLocked() const;

  std::mutex mutex_;
  SettingsFile file_;
  std::shared_ptr<const nlohmann::json> set_;  // Null while the file counts.
};

}  // namespace zln::collector
