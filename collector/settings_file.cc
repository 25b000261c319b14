#include "collector/settings_file.h"

#include <fstream>
#include <stdexcept>
#include <utility>

namespace zln::collector {
namespace {

nlohmann::json read(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) throw std::invalid_argument("cannot read " + path.string());
  nlohmann::json settings = nlohmann::json::parse(file, nullptr, /*allow_exceptions=*/false);
  if (!settings.is_object()) throw std::invalid_argument(path.string() + " holds no JSON object");
  return settings;
}

}  // namespace

SettingsFile::SettingsFile(std::filesystem::path path)
    : path_(std::move(path)), settings_(read(path_)) {}

const nlohmann::json& SettingsFile::current() {
  if (path_.empty()) return settings_;
  try {
    settings_ = read(path_);
    broken_ = false;
  } catch (const std::invalid_argument&) {
    // Somebody is editing the file: a game is better answered with what it held before.
    broken_ = true;
  }
  return settings_;
}

}  // namespace zln::collector
