#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/http.h"
#include "tests/season/model.h"
#include "tests/support/dice.h"

namespace zln::season {

// How the servers are at the moment.
enum class Server { good, mixed, failing, rejecting, nonsense, unreachable, silent };

// A value of a settings reply, and what it makes of the setting, if it counts.
struct Choice {
  const char* json;
  std::optional<double> value;
};

inline std::vector<Choice> choicesFor(std::size_t setting) {
  switch (setting) {
    case failureLimit:
      return {{"3", 3}, {"5", 5}, {"1", 1}, {"0", 0}, {"-1", -1}, {"2.9", 2}, {"\"5\"", {}}};
    case inactivityLimit:
      return {{"600", 600}, {"30", 30},   {"0", 0},     {"-1.5", -1.5},
              {"2.5", 2.5}, {"1e6", 1e6}, {"null", {}}, {"true", 1}};
    case updateInterval:
      return {{"86400", 86400}, {"3600", 3600}, {"60", 60}, {"0", 0}, {"-1", -1}, {"[60]", {}}};
    case backgroundTimeout:
      return {{"60", 60}, {"3", 3}, {"0", 0}, {"-5", -5}, {"2.5", 2.5}, {"10", 10}, {"{}", {}}};
    default:
      return {{"true", 1}, {"1", 1},     {"true", 1}, {"true", 1},   {"0.5", 1},  {"true", 1},
              {"1", 1},    {"false", 0}, {"0", 0},    {"\"0\"", {}}, {"null", {}}};
  }
}

inline HttpReply failure(int code) {
  return {"", std::nullopt, Error{kUrlErrorDomain, code, std::nullopt, {}}};
}

// What such a server says to a report, and what follows from it.
inline std::pair<HttpReply, Model::Outcome> reportReply(Server server, Dice& dice) {
  using enum Model::Outcome;
  const auto oneOf = [&](const std::vector<const char*>& bodies) {
    HttpResponse head;
    head.statusCode = dice.perMille(800) ? 200 : 500;
    return HttpReply{dice.oneOf(bodies), head, std::nullopt};
  };
  if (server == Server::mixed) server = static_cast<Server>(dice.below(6));
  switch (server) {
    case Server::failing:
      return {oneOf({R"({"success":false})", R"({"success":0,"error":"later"})",
                     R"({"success":false,"errorIsPermanent":"yes"})",
                     R"({"success":false,"errorIsPermanent":0})"}),
              failedForNow};
    case Server::rejecting:
      return {oneOf({R"({"success":false,"errorIsPermanent":true,"error":"no"})",
                     R"({"success":0,"errorIsPermanent":1})",
                     R"({"success":false,"errorIsPermanent":true,"error":5})"}),
              failedForGood};
    case Server::nonsense:
      return {oneOf({"", "<html>", "[true]", R"({"success":"true"})", "5", "{", "null", "{}",
                     "\xFF\xFE"}),
              failedForNow};
    case Server::unreachable: {
      constexpr int kCodes[] = {-1001, -1003, -1004, -1005, -1009, -1200, -1, -999, -1002, -1011};
      const std::size_t code = dice.below(std::size(kCodes));
      return {failure(kCodes[code]), code < 7 ? failedForNow : failedForGood};
    }
    default:
      return {oneOf({R"({"success":true})", R"({"success":1})", R"({"success":-0.5,"more":[{}]})"}),
              delivered};
  }
}

// And to the question for settings: which of them change, if the reply has any.
inline std::pair<HttpReply, std::optional<Model::SettingsReply>> settingsReply(Server server,
                                                                               Dice& dice) {
  if (server == Server::unreachable) return {failure(-1009), std::nullopt};
  HttpReply reply{"", HttpResponse{"", 200, {}}, std::nullopt};
  if (server == Server::nonsense) {
    constexpr const char* kBodies[] = {"", "[{}]", "<html>", "5", "{\"a\":"};
    reply.body = dice.oneOf(kBodies);
    return {reply, std::nullopt};
  }
  Model::SettingsReply values;
  reply.body = "{\"unknown\":1";
  for (std::size_t setting = 0; setting < settingCount; ++setting) {
    if (dice.perMille(600)) continue;
    const Choice choice = dice.oneOf(choicesFor(setting));
    reply.body += std::string(",\"") + kSettingKeys[setting] + "\":" + choice.json;
    if (choice.value) values[static_cast<Setting>(setting)] = *choice.value;
  }
  reply.body += '}';
  return {reply, values};
}

}  // namespace zln::season
