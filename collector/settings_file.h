#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json_fwd.hpp>

namespace zln::collector {

// The JSON object in a file that may change while the collector runs, or none. One thread at a
// time.
class SettingsFile {
 public:
  SettingsFile();
  // Throws std::invalid_argument with a text for people when the file holds no JSON object.
  explicit SettingsFile(std::filesystem::path path);

  // The object as the file holds it now; the last one that it held while it holds none.
  const nlohmann::json& current();
  // Whether the file held none when it was last read.
  bool isBroken() const { return broken_; }
  // Whether there is to be a file.
  bool exists() const { return !path_.empty(); }

 private:
  std::filesystem::path path_;
  std::shared_ptr<const nlohmann::json> settings_;
  bool broken_ = false;
};

}  // namespace zln::collector
