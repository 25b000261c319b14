#include "tests/collector/shown.h"

#include "collector/fault_list.h"
#include "collector/json.h"
#include "collector/settings_lint.h"
#include "collector/settings_values.h"

namespace zln::collector {

JsonText shown(const Fault& fault) { return JsonText(textOf(toJson(fault))); }

JsonText shown(const FaultList& faults) { return JsonText(textOf(faults.list())); }

JsonText shown(SettingsValues& settings) { return JsonText(textOf(settings.describe())); }

std::string currentOf(SettingsValues& settings) { return textOf(settings.current()); }

void set(SettingsValues& settings, const Json& values) {
  settings.set(static_cast<const nlohmann::json&>(values));
}

JsonText lintOf(const std::string& key, const Json& value) {
  const nlohmann::json& plain = value;
  return JsonText(textOf(lintSettings({{key, plain}})));
}

JsonText lintOf(const Json& settings) { return JsonText(textOf(lintSettings(settings))); }

}  // namespace zln::collector
