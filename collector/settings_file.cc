#include "collector/settings_file.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "collector/json.h"
#include "collector/json_object.h"

namespace zln::collector {
namespace {

// A folder can be opened, too.
std::shared_ptr<const nlohmann::json> read(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file || std::filesystem::is_directory(path)) {
    throw std::invalid_argument("cannot read " + path.string());
  }
  const std::string text(std::istreambuf_iterator<char>(file), {});
  auto settings = parseObject(text);
  if (!settings) throw std::invalid_argument(path.string() + " holds no JSON object");
  return std::make_shared<const nlohmann::json>(*std::move(settings));
}

}  // namespace

SettingsFile::SettingsFile()
    : settings_(std::make_shared<const nlohmann::json>(nlohmann::json::object())) {}

SettingsFile::SettingsFile(std::filesystem::path path)
    : path_(std::move(path)), settings_(read(path_)) {}

const nlohmann::json& SettingsFile::current() {
  if (path_.empty()) return *settings_;
  try {
    settings_ = read(path_);
    broken_ = false;
  } catch (const std::invalid_argument&) {
    // Somebody is editing the file: a game is better answered with what it held before.
    broken_ = true;
  }
  return *settings_;
}

}  // namespace zln::collector
