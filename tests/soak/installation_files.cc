#include "tests/soak/installation_files.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>

#include "platform/property_list.h"
#include "tests/soak/soak_reports.h"

namespace zln {
namespace {

// A list with a report is longer.
constexpr std::uintmax_t kLongestEmptyList = 400;

// Absent when there is no file.
std::optional<std::string> contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// Absent when there is no file, or none that can be read.
std::optional<Value> valueIn(const std::string& path, StoredState& state) {
  const std::optional<std::string> content = contentOf(path);
  if (!content) return std::nullopt;
  std::optional<Value> root = property_list::read(*content);
  if (!root) state.problems.push_back("unreadable: " + path);
  return root;
}

std::string textIn(const Dictionary& entries, std::string_view key) {
  const std::string* text = entries.findString(key);
  return text == nullptr ? std::string() : *text;
}

bool isOn(const Dictionary& settings, const std::string& name) {
  const Number* number = settings.findNumber("ConfigSerializationKey" + name);
  return number == nullptr || number->boolValue();
}

}  // namespace

int StoredState::copiesOf(const std::string& identity) const {
  return static_cast<int>(std::count_if(reports.begin(), reports.end(), [&](const auto& report) {
    return report.identity == identity;
  }));
}

std::string InstallationFiles::reportsFile() const {
  return home_ + "/data/com.example.soak/com.zelnor.sdk/reporting/reports.json";
}

std::string InstallationFiles::keptReportsFile() const {
  return home_ + "/data/com.example.soak/com.zelnor.sdk/.reports.json.spare.old";
}

std::string InstallationFiles::settingsFile() const {
  return home_ + "/data/com.example.soak/com.zelnor.sdk/data/config.dat";
}

void InstallationFiles::putStaleSettings() const {
  const std::filesystem::path path = settingsFile();
  std::filesystem::create_directories(path.parent_path());
  const Dictionary settings{{"ConfigSerializationKeyConfigUpdateInterval", Number::int32(-1)}};
  std::ofstream(path) << property_list::write(settings).value();
}

StoredState InstallationFiles::read() const {
  StoredState state;
  readReports(state);
  readSettings(state);
  readDefaults(state);
  return state;
}

bool InstallationFiles::owesNothing() const {
  std::error_code missing;
  const auto size = std::filesystem::file_size(reportsFile(), missing);
  if (missing || size > kLongestEmptyList) return false;
  const std::optional<std::string> content = contentOf(reportsFile());
  return content && content->find("<array/>") != std::string::npos &&
         !std::filesystem::exists(keptReportsFile());
}

void InstallationFiles::readReports(StoredState& state) const {
  const std::optional<Value> kept = valueIn(keptReportsFile(), state);
  const std::optional<Value> root = valueIn(reportsFile(), state);
  if (kept && kept->array() != nullptr) addReports(*kept->array(), state);
  if (!root) return;
  if (root->array() == nullptr) {
    state.problems.push_back("no list: " + reportsFile());
    return;
  }
  StoredState now;
  addReports(*root->array(), now);
  std::set<std::string> known;
  for (const StoredReport& report : state.reports) known.insert(report.identity);
  state.problems.insert(state.problems.end(), now.problems.begin(), now.problems.end());
  for (StoredReport& report : now.reports) {
    state.inPlace.insert(report.identity);
    if (!known.contains(report.identity)) state.reports.push_back(std::move(report));
  }
}

void InstallationFiles::addReports(const Array& elements, StoredState& state) {
  for (const Value& element : elements) {
    const Dictionary entries = element.dictionary() ? *element.dictionary() : Dictionary();
    const std::string identity = identityOf(textIn(entries, "type"), textIn(entries, "network"),
                                            textIn(entries, "sessionId"));
    if (identity.empty()) state.problems.push_back("no report: " + element.description());
    state.reports.push_back({identity, textIn(entries, "adEventId")});
  }
}

void InstallationFiles::readSettings(StoredState& state) const {
  const std::optional<Value> root = valueIn(settingsFile(), state);
  if (!root || root->dictionary() == nullptr) return;
  state.sendsFirst = isOn(*root->dictionary(), "SendFirstSessionReports");
  state.sendsStart = isOn(*root->dictionary(), "SendStartSessionReports");
  state.sendsStop = isOn(*root->dictionary(), "SendStopSessionReports");
}

void InstallationFiles::readDefaults(StoredState& state) const {
  const std::optional<Value> root = valueIn(home_ + "/config/com.example.soak.plist", state);
  if (!root || root->dictionary() == nullptr) return;
  const Number* sent = root->dictionary()->findNumber("com.zelnor.firstSessionSent");
  state.firstSessionSent = sent != nullptr && sent->boolValue();
  state.user = textIn(*root->dictionary(), "com.zelnor.sessionUserId");
}

}  // namespace zln
