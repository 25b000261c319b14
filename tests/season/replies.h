#pragma once

#include <optional>
#include <utility>

#include "platform/http.h"
#include "tests/season/model.h"
#include "tests/support/dice.h"

namespace zln::season {

// How the servers are at the moment.
enum class Server { good, mixed, failing, rejecting, nonsense, unreachable, silent };

// What such a server says to a report, and what follows from it.
std::pair<HttpReply, Model::Outcome> reportReply(Server server, Dice& dice);
// And to the question for settings: which of them change, if the reply has any.
std::pair<HttpReply, std::optional<Model::SettingsReply>> settingsReply(Server server, Dice& dice);

}  // namespace zln::season
