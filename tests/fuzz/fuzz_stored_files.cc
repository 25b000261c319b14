// The input is a file that somebody else has written: it is read as a property list, and the
// library finds it where its own files lie. A list stands for the reports, a dictionary for the
// settings and the user defaults, anything else for one of the three.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "config/ZLNReportingConfig.h"
#include "platform/calendar.h"
#include "platform/posix/user_defaults_posix.h"
#include "platform/property_list.h"
#include "platform/utf8.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/fuzzed_host.h"

namespace zln::fuzz {
namespace {

// A few bytes of the binary form can stand for a million values; what is larger than this is read
// and no more.
constexpr std::size_t kMostCost = 200000;

std::size_t costOf(const Value& value) {
  std::size_t cost = 1;
  if (const std::string* text = value.string()) cost += text->size();
  if (const Data* data = value.data()) cost += data->bytes.size();
  if (const Array* array = value.array()) {
    for (const Value& element : *array) cost += costOf(element);
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    for (const auto& [key, element] : dictionary->entries()) cost += key.size() + costOf(element);
  }
  return cost;
}

// What is left of a value when it has been written: characters that XML has, whole seconds.

std::string writableText(std::string_view text) {
  std::string writable;
  while (!text.empty()) {
    const Utf8Character character = firstCharacter(text);
    const char32_t c = character.codePoint;
    const bool isInXml =
        c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
    appendUtf8(writable, isInXml ? c : 0xFFFD);
    text.remove_prefix(character.length);
  }
  return writable;
}

Value writable(const Value& value) {
  if (const std::string* text = value.string()) return writableText(*text);
  if (const Date* date = value.date()) {
    return Date{std::clamp(std::floor(date->secondsSince1970), static_cast<double>(kStartOfYear1),
                           static_cast<double>(kStartOfYear10000 - 1))};
  }
  if (const Array* array = value.array()) {
    Array elements;
    for (const Value& element : *array) elements.push_back(writable(element));
    return elements;
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    std::vector<Dictionary::Entry> entries;
    for (const auto* entry : dictionary->sortedEntries()) {
      entries.emplace_back(writableText(entry->first), writable(entry->second));
    }
    return Dictionary::fromEntries(std::move(entries), Dictionary::Repeated::lastCounts);
  }
  return value;
}

void checkThatItIsWrittenAsItWasRead(const Value& root) {
  const std::optional<std::string> document = property_list::write(root);
  require(document.has_value(), "what was read can be written", root.description());
  std::string problem;
  const std::optional<Value> again = property_list::read(*document, &problem);
  require(again.has_value(), "what was written can be read: " + problem, *document);
  require(isSame(writable(root), *again), "a list that is written and read again is the same",
          *document);
}

// As the report file.

bool canBeSent(const Value& value) {
  if (const Array* array = value.array())
    return std::all_of(array->begin(), array->end(), &canBeSent);
  if (const Dictionary* dictionary = value.dictionary()) {
    return std::all_of(dictionary->entries().begin(), dictionary->entries().end(),
                       [](const auto& entry) { return canBeSent(entry.second); });
  }
  // The times of a session are read as floats.
  if (const Number* number = value.number()) return std::isfinite(number->floatValue());
  return value.string() != nullptr;
}

// How many of the reports would be loaded. One that holds what JSON does not know is dropped as
// soon as it is to be sent, but that of a key which reports do not have is of no account.
struct Found {
  std::size_t reports = 0;
  std::size_t sendable = 0;
};

Found reportsIn(const Value* root) {
  Found found;
  if (root == nullptr || root->array() == nullptr) return found;
  for (const Value& element : *root->array()) {
    if (!isReport(element)) continue;
    ++found.reports;
    if (canBeSent(element)) ++found.sendable;
  }
  return found;
}

bool isAmong(const Array& list, const Value& report) {
  return std::any_of(list.begin(), list.end(),
                     [&](const Value& other) { return isSame(other, report); });
}

// The next process takes up all of `stored`, and its own session joins them.
void checkThatTheNextProcessTakesUp(FuzzedHost& host, const Array& stored) {
  host.restart();
  host.start();
  const std::optional<Array> again = host.storedReports();
  require(again && again->size() == stored.size() + 1, "a restart keeps every report",
          host.env.files.contents(kReportsFile).value_or("no file"));
  for (const Value& report : stored) {
    // Only that of the process before has a time with all its digits, which a restart rounds.
    const bool isOfThatProcess =
        *report.dictionary()->findString("type") == "ReportTypeSessionFirst";
    require(isOfThatProcess || isAmong(*again, report), "a restart changes no stored report",
            report.description());
  }
}

void useAsReports(const std::string& bytes, const Value* root) {
  // A full queue takes no more.
  constexpr std::size_t kMany = 900;
  constexpr std::size_t kFew = 30;
  const auto [reports, sendable] = reportsIn(root);
  FuzzedHost host(reports < kFew ? logLevelFor(bytes.size()) : 1);
  host.env.files.put(kReportsFile, bytes);
  host.start();
  const std::optional<Array> stored = host.storedReports();
  require(stored.has_value(), "there is a list after the start");
  if (reports <= kMany) {
    // The process's own session is one of them.
    require(stored->size() > sendable && stored->size() <= reports + 1,
            "every good report is loaded, and nothing else",
            host.env.files.contents(kReportsFile).value_or("no file"));
  }
  if (reports < kFew && reports == sendable) checkThatTheNextProcessTakesUp(host, *stored);

  require(host.deliverAll(5000), "sending comes to its end");
  require(host.storedReports() == Array{}, "nothing is owed any more",
          host.env.files.contents(kReportsFile).value_or("no file"));
}

// As the settings file.

Dictionary settingsOfThisProcess() {
  return ZLNReportingConfig::sharedConfig()->configToDictionary();
}

// A day of the game, under whatever settings, with a server that is out of order at first.
void playADay(FuzzedHost& host) {
  constexpr std::size_t kFailures = 5;
  std::size_t answers = 0;
  const auto answer = [&](std::size_t request) {
    host.reply(request, answers++ < kFailures ? "{\"success\":false}" : "{\"success\":true}");
  };
  for (int round = 0; round < 2; ++round) {
    ZLNSendBannerAdAttemptReport("net", true);
    host.env.app.becomeActive();
    host.answerAll(kFailures, answer);
    host.env.clock.advance(30);
    host.leaveAndReturn();
  }
  host.env.app.terminate();
  require(host.answerAll(500, answer), "sending comes to its end");
}

void useAsSettings(const std::string& bytes) {
  FuzzedHost host(logLevelFor(bytes.size()));
  host.env.files.put(kSettingsFile, bytes);
  host.start();
  const Dictionary settings = settingsOfThisProcess();
  ZLNReportingConfig::sharedConfig()->saveConfig();
  const auto saved = property_list::read(host.env.files.contents(kSettingsFile).value_or(""));
  require(saved && saved->dictionary() != nullptr && saved->dictionary()->size() == 11,
          "the settings are written whole",
          host.env.files.contents(kSettingsFile).value_or("no file"));

  host.restart();
  host.start();
  require(isSame(settings, settingsOfThisProcess()), "the next process has the same settings",
          settings.description() + settingsOfThisProcess().description());
  playADay(host);
}

// As the user defaults.

UserDefaultsPosix defaultsIn(FakeFiles& files) {
  return UserDefaultsPosix(files, [] { return std::string("/config/game.plist"); });
}

void checkThatAChangeKeepsTheRest(FakeFiles& files, const Dictionary& entries) {
  UserDefaultsPosix defaults = defaultsIn(files);
  for (const auto& [key, value] : entries.entries()) {
    const std::optional<Value> got = defaults.get(key, nullptr);
    require(got && isSame(*got, value), "every entry is there", key);
  }
  defaults.set("the library's", "own");
  require(defaults.synchronize(), "a change is written");

  Dictionary expected = entries;
  expected.set("the library's", "own");
  const auto root = property_list::read(files.contents("/config/game.plist").value_or(""));
  require(root && isSame(*root, writable(expected)), "a change keeps the other entries",
          files.contents("/config/game.plist").value_or("no file"));
}

void useAsDefaults(const std::string& bytes, const Value* root) {
  const Dictionary* entries = root == nullptr ? nullptr : root->dictionary();
  FuzzedHost host(logLevelFor(bytes.size()));
  host.env.files.put("/config/game.plist", bytes);
  UserDefaultsPosix defaults = defaultsIn(host.env.files);
  for (const char* key : {"com.zelnor.sessionUserId", "com.zelnor.firstSessionSent"}) {
    if (const auto value = defaults.get(key, nullptr)) host.env.defaults.set(key, *value);
  }
  checkThatAChangeKeepsTheRest(host.env.files, entries == nullptr ? Dictionary() : *entries);

  host.start();
  playADay(host);
}

void useWhereItFits(const std::string& bytes, const Value* root) {
  const bool isAnything = root == nullptr || (root->array() == nullptr && !root->dictionary());
  const bool isList = root != nullptr && root->array() != nullptr;
  const bool isDictionary = root != nullptr && root->dictionary() != nullptr;
  const std::size_t use = bytes.size() % 3;
  if (isList || (isAnything && use == 0)) useAsReports(bytes, root);
  if (isDictionary || (isAnything && use == 1)) useAsSettings(bytes);
  if (isDictionary || (isAnything && use == 2)) useAsDefaults(bytes, root);
}

}  // namespace
}  // namespace zln::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zln::fuzz;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::string problem;
  const auto root = zln::property_list::read(bytes, &problem);
  require(root.has_value() == problem.empty(), "what is wrong is said, and only then", problem);
  if (root && costOf(*root) > kMostCost) return 0;
  if (root) checkThatItIsWrittenAsItWasRead(*root);
  useWhereItFits(bytes, root ? &*root : nullptr);
  return 0;
}
