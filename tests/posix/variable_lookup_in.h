#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/process_environment.h"

namespace zln {

using Variables = std::map<std::string, std::string>;

// An environment that has these variables alone.
inline VariableLookup lookupIn(Variables variables) {
  return [variables = std::move(variables)](const char* name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

}  // namespace zln
