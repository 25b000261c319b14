#include "tests/support/installation_files.h"

#include <filesystem>
#include <set>

#include "platform/posix/plain_file.h"
#include "platform/property_list.h"

namespace zln {
namespace {

namespace fs = std::filesystem;

// A list with a report is longer.
constexpr std::size_t kLongestEmptyList = 400;

// Absent when there is no file. Read as the library reads: a game that runs may write meanwhile.
std::optional<std::string> contentOf(const std::string& path) {
  return readPlainFile(path, property_list::kLargestDocument);
}

// Absent when there is no file, or none whose root is of that kind, which is a problem.
template <typename Root>
std::optional<Root> rootOf(const std::string& path, const Root* (Value::*kind)() const,
                           StoredState& state) {
  const std::optional<std::string> content = contentOf(path);
  if (!content) return std::nullopt;
  const std::optional<Value> value = property_list::read(*content);
  const Root* root = value ? ((*value).*kind)() : nullptr;
  if (root != nullptr) return *root;
  state.problems.push_back("unreadable: " + path);
  return std::nullopt;
}

std::vector<StoredReport> reportsIn(const Array& elements, StoredState& state) {
  std::vector<StoredReport> reports;
  for (const Value& element : elements) {
    const Dictionary entries = element.dictionary() ? *element.dictionary() : Dictionary();
    reports.push_back({reportIdentity(entries), textIn(entries, "network")});
    if (!reports.back().identity.isReport()) {
      state.problems.push_back("no report: " + element.description());
    }
  }
  return reports;
}

}  // namespace

InstallationFiles::InstallationFiles(const std::string& home, const std::string& application)
    : home_(home),
      reports_(home + "/data/" + application + "/com.zelnor.sdk/reporting/reports.json"),
      spare_(home + "/data/" + application + "/com.zelnor.sdk/.reports.json.spare"),
      settings_(home + "/data/" + application + "/com.zelnor.sdk/data/config.dat"),
      defaults_(home + "/config/" + application + ".plist") {}

StoredState InstallationFiles::read() const {
  StoredState state;
  if (const auto reports = rootOf(reports_, &Value::array, state)) {
    state.hasReportFile = true;
    state.reports = reportsIn(*reports, state);
  }
  state.settings = rootOf(settings_, &Value::dictionary, state);
  if (const auto defaults = rootOf(defaults_, &Value::dictionary, state)) {
    const Number* sent = defaults->findNumber("com.zelnor.firstSessionSent");
    state.isFirstSessionSent = sent != nullptr && sent->boolValue();
    state.user = textIn(*defaults, "com.zelnor.sessionUserId");
  }
  return state;
}

bool InstallationFiles::owesNothing() const {
  std::error_code missing;
  const auto size = fs::file_size(reports_, missing);
  if (missing || size > kLongestEmptyList) return false;
  const std::optional<std::string> content = contentOf(reports_);
  return content && content->find("<array/>") != std::string::npos;
}

std::vector<std::string> InstallationFiles::strangers() const {
  const std::set<std::string> known = {reports_, spare_, settings_, defaults_};
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(home_)) {
    if (entry.is_directory() || known.contains(entry.path())) continue;
    names.push_back(fs::relative(entry.path(), home_));
  }
  return names;
}

}  // namespace zln
