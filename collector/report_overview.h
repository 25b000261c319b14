#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "collector/database.h"

namespace zln::collector {

// How many reports there are of what, as the interface for programs shows it. Throws DatabaseError.
nlohmann::json summaryOf(Database& database);

// The sessions and ad attempts of the installations with the latest reports, at most `limit` of
// them, or of the one of `user`; of each as far as its newest reports tell. Throws DatabaseError.
nlohmann::json timelineOf(Database& database, const std::optional<std::string>& user, int limit);

}  // namespace zln::collector
