#include "tests/faults/stored_state.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/property_list.h"
#include "tests/faults/answering_server.h"

namespace zln::faults {
namespace {

namespace fs = std::filesystem;

constexpr char kReports[] = "data/com.example.game/com.zelnor.sdk/reporting/reports.json";
constexpr char kSpare[] = "data/com.example.game/com.zelnor.sdk/.reports.json.spare";
// What is kept for the next process while a list is being taken up.
constexpr char kKept[] = "data/com.example.game/com.zelnor.sdk/.reports.json.spare.old";
constexpr char kSettings[] = "data/com.example.game/com.zelnor.sdk/data/config.dat";
constexpr char kDefaults[] = "config/com.example.game.plist";

std::string textIn(const Dictionary& dictionary, const char* key) {
  const std::string* text = dictionary.findString(key);
  return text == nullptr ? "" : *text;
}

bool isList(const char* name) { return name == kReports || name == kKept; }

// The root of a file's property list; absent, and told of, when it cannot be read.
std::optional<Value> rootOf(const std::string& home, const char* name, StoredState& state) {
  // A running game may take the file away at any moment, so only one that is open is there.
  std::ifstream file(home + "/" + name, std::ios::binary);
  if (!file) return std::nullopt;
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  std::optional<Value> root = property_list::read(bytes);
  const bool isExpected =
      root && (isList(name) ? root->array() != nullptr : root->dictionary() != nullptr);
  if (!isExpected) state.torn.push_back(name);
  return isExpected ? root : std::nullopt;
}

void readReports(const std::string& home, const char* name, StoredState& state) {
  const std::optional<Value> root = rootOf(home, name, state);
  if (!root) return;
  if (!state.reports) state.reports.emplace();
  for (const Value& element : *root->array()) {
    const Dictionary* report = element.dictionary();
    if (report == nullptr || textIn(*report, "type").empty()) {
      state.torn.push_back(std::string(name) + " has an element that is no report");
      continue;
    }
    state.reports->insert(identityOf(textIn(*report, "type"), textIn(*report, "adEventId"),
                                     textIn(*report, "sessionId")));
    state.networks.insert(textIn(*report, "network"));
  }
}

void readSettings(const std::string& home, StoredState& state) {
  const std::optional<Value> root = rootOf(home, kSettings, state);
  state.hasSettings = root && root->dictionary()->find("lastUpdate") != nullptr;
  if (root && !state.hasSettings) state.torn.push_back(std::string(kSettings) + " lacks its time");
}

void readDefaults(const std::string& home, StoredState& state) {
  const std::optional<Value> root = rootOf(home, kDefaults, state);
  if (!root) return;
  state.user = textIn(*root->dictionary(), "com.zelnor.sessionUserId");
  state.isFirstSessionSent = root->dictionary()->find("com.zelnor.firstSessionSent") != nullptr;
}

void listStrangers(const std::string& home, StoredState& state) {
  const std::set<std::string> known = {kReports, kSpare, kSettings, kDefaults};
  for (const auto& entry : fs::recursive_directory_iterator(home)) {
    const std::string name = fs::relative(entry.path(), home);
    if (!entry.is_directory() && !known.contains(name)) state.strangers.push_back(name);
  }
}

void readFiles(const std::string& home, StoredState& state) {
  readReports(home, kReports, state);
  if (state.reports) readReports(home, kKept, state);
  readSettings(home, state);
  readDefaults(home, state);
}

}  // namespace

StoredState readStoredState(const std::string& home) {
  StoredState state;
  readFiles(home, state);
  listStrangers(home, state);
  return state;
}

std::vector<std::string> tornFiles(const std::string& home) {
  StoredState state;
  readFiles(home, state);
  return state.torn;
}

}  // namespace zln::faults
