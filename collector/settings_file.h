#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>

namespace zln::collector {

// The settings that games are answered with: the JSON object in a file that may change while the
// receiver runs, or none. One thread at a time.
class SettingsFile {
 public:
  SettingsFile() = default;
  // Throws std::invalid_argument with a text for people when the file holds no JSON object.
  explicit SettingsFile(std::filesystem::path path);

  // The object as the file holds it now; the last one that it held while it holds none.
  const nlohmann::json& current();

 private:
  std::filesystem::path path_;
  nlohmann::json settings_ = nlohmann::json::object();
};

}  // namespace zln::collector
