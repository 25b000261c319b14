#pragma once

#include <string>

#include "tests/collector/json_text.h"

namespace zln::collector {

class FaultList;
class SettingsValues;
struct Fault;

// What the collector shows and takes as JSON.
JsonText shown(const Fault& fault);
JsonText shown(const FaultList& faults);
JsonText shown(SettingsValues& settings);
std::string currentOf(SettingsValues& settings);
void set(SettingsValues& settings, const Json& values);
// The findings about a setting, and about several.
JsonText lintOf(const std::string& key, const Json& value);
JsonText lintOf(const Json& settings);

}  // namespace zln::collector
