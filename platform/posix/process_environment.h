#pragma once

#include <functional>
#include <optional>
#include <string>

namespace zln {

// Looks up a variable of the process environment; absent when it is not set or empty.
using VariableLookup = std::function<std::optional<std::string>(const char* name)>;

// The variable of this process, copied at once. A game that changes its environment meanwhile is
// at fault, here as in every other reader of the environment.
std::optional<std::string> environmentVariable(const char* name);

// The home folder of the user: HOME, else what the user database says, else "/". Paths that are
// not absolute do not count.
std::string homeFolder(const VariableLookup& variable);

// The folders under which programs keep their data and their settings: an absolute path in
// XDG_DATA_HOME or XDG_CONFIG_HOME, else ".local/share" or ".config" in the home folder.
std::string dataFolder(const VariableLookup& variable);
std::string configFolder(const VariableLookup& variable);

}  // namespace zln
