#include <cstddef>

#include "config/ZLNReportingConfig.h"
#include "platform/path.h"
#include "platform/property_list.h"
#include "support/ZLNDirectories.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {
namespace {

constexpr char kLastUpdateKey[] = "lastUpdate";

// Far more than all settings take. The game's own thread waits while the file is read.
constexpr std::size_t kLargestFile = std::size_t{1} << 20;

}  // namespace

std::string ZLNReportingConfig::savePath() {
  return appendPathComponent(ZLNDirectories::dataPath(), "config.dat");
}

void ZLNReportingConfig::saveConfig() const {
  Dictionary dictionary = configToDictionary();
  const double lastUpdate = configUpdateTime().value_or(Date{}).secondsSince1970;
  dictionary.set(kLastUpdateKey, Number::float64(lastUpdate));
  const std::optional<std::string> bytes = property_list::write(dictionary);
  if (isFileUnread_.get() || !bytes ||
      !environment().files.writeAtomically(savePath(), *bytes, Durability::eventual, nullptr)) {
    logError("An error occured writing config");
  }
}

bool ZLNReportingConfig::loadStoredConfig() {
  Error error;
  const auto bytes = environment().files.read(savePath(), kLargestFile, &error);
  isFileUnread_.set(!bytes && !isFileMissing(error));
  if (!bytes && isFileMissing(error)) return false;
  const std::optional<Value> stored = bytes ? property_list::read(*bytes) : std::nullopt;
  const Dictionary* dictionary = stored ? stored->dictionary() : nullptr;
  const Value* lastUpdate = dictionary == nullptr ? nullptr : dictionary->find(kLastUpdateKey);
  if (lastUpdate != nullptr && lastUpdate->number() != nullptr) {
    setConfigUpdateTime(Date::fromStored(*lastUpdate->number()));
  } else if (lastUpdate != nullptr) {
    logInfo("Config timestamp was incorrect class %@", *lastUpdate);
    // Kept: the file goes, its other settings are taken all the same.
    deleteConfig();
  }
  if (!processConfigDictionary(dictionary)) {
    logInfo("loaded invalid config");
    deleteConfig();
    return false;
  }
  return true;
}

void ZLNReportingConfig::deleteConfig() const {
  const std::string path = savePath();
  if (!environment().files.exists(path)) return;
  Error error;
  if (!environment().files.remove(path, &error)) {
    // Kept: the path comes first, although the words suggest the error.
    logInfo("Could not delete config %@ at %@", path, error);
  }
}

bool ZLNReportingConfig::shouldUpdateFromRemote() const {
  const Date now = environment().clock.now();
  Date due;
  if (const std::optional<Date> updated = configUpdateTime()) {
    due.secondsSince1970 = updated->secondsSince1970 + static_cast<double>(configUpdateInterval());
  }
  return now - due > 0;
}

void ZLNReportingConfig::updateIfNeeded() {
  if (isFileUnread_.get()) loadStoredConfig();
  if (!shouldUpdateFromRemote()) {
    logDebug("Config is not stale. Update skipped.");
    return;
  }
  logDebug("Config is stale. Updating.");
  updateConfigFromRemote();
}

}  // namespace zln
