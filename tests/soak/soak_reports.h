#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zln {

// What the game says with the call of that number; soak_game.c makes the calls.
struct AdCall {
  std::string network;
  std::string adType;
  std::optional<std::string> zone;
  bool filled = false;
};
AdCall adCall(const std::string& name, int number);

// What makes two reports the same one: "ad" and the network, which is another one in each call;
// "begin" and the session for the first two kinds of session report; "stop" and the session.
std::string adIdentity(std::string_view network);
std::string beginIdentity(std::string_view session);
std::string stopIdentity(std::string_view session);
// Of a report as it is sent or stored; empty when it is none.
std::string identityOf(std::string_view type, std::string_view network, std::string_view session);
std::string identityOf(const nlohmann::json& body);

// The text under that key, empty when there is none.
std::string textIn(const nlohmann::json& body, const char* key);

}  // namespace zln
