#include "collector/fault.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "collector/json.h"
#include "collector/json_object.h"
#include "collector/report_kinds.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr std::size_t kLongestText = 1000;
constexpr std::size_t kMostMatches = 16;
constexpr double kLongestSeconds = 3600;
constexpr int kMostTimes = 1000000;
constexpr int kLowestStatus = 200;
constexpr int kHighestStatus = 599;
constexpr double kDefaultSeconds = 2;
constexpr char kDefaultError[] = "refused on demand";

// In the order of the enumerators.
constexpr std::array<std::string_view, 15> kEffects = {"temporary",
                                                       "permanent",
                                                       "status",
                                                       "empty",
                                                       "garbage",
                                                       "array",
                                                       "huge",
                                                       "delay",
                                                       "stall",
                                                       "cut-before",
                                                       "cut-during",
                                                       "cut-after",
                                                       "redirect",
                                                       "expired-certificate",
                                                       "wrong-host-certificate"};

bool isOneOf(Effect effect, std::initializer_list<Effect> effects) {
  return std::ranges::find(effects, effect) != effects.end();
}

bool hasStatus(Effect effect) {
  return isOneOf(effect, {Effect::kTemporary, Effect::kPermanent, Effect::kStatus, Effect::kEmpty,
                          Effect::kGarbage, Effect::kArray, Effect::kHuge});
}

bool hasSeconds(Effect effect) { return !actsOnConnection(effect); }

// Nothing but a time.
bool isATime(Effect effect) { return isOneOf(effect, {Effect::kDelay, Effect::kStall}); }

bool isAllowed(const std::string& key, Effect effect) {
  if (key == "status") return hasStatus(effect);
  if (key == "error") return effect == Effect::kPermanent;
  if (key == "seconds") return hasSeconds(effect);
  if (key == "to") return effect == Effect::kRedirect;
  if (key == "match") return !actsOnConnection(effect);
  return key == "effect" || key == "types" || key == "times" || key == "share" || key == "seed";
}

[[noreturn]] void refuse(const std::string& complaint) { throw std::invalid_argument(complaint); }

std::string listOf(const auto& names) {
  std::string list;
  for (const std::string_view name : names) list += (list.empty() ? "" : ", ") + std::string(name);
  return list;
}

Effect parseEffect(const json& object) {
  const auto member = object.find("effect");
  if (member == object.end() || !member->is_string()) {
    refuse("a fault needs an \"effect\": " + listOf(kEffects));
  }
  const auto found = std::ranges::find(kEffects, member->get_ref<const std::string&>());
  if (found == kEffects.end()) {
    refuse("\"" + member->get<std::string>() + "\" is no effect: " + listOf(kEffects));
  }
  return static_cast<Effect>(std::distance(kEffects.begin(), found));
}

void checkMembers(const json& object, Effect effect) {
  for (const auto& [key, value] : object.items()) {
    if (isAllowed(key, effect)) continue;
    refuse("the effect \"" + std::string(nameOf(effect)) + "\" takes no \"" +
           key.substr(0, kLongestText) + "\"");
  }
}

bool isType(const json& value) {
  if (!value.is_string()) return false;
  const auto& name = value.get_ref<const std::string&>();
  const auto kind = kindNamed(name);
  return name == kConfigType || (kind && *kind != ReportKind::kUnknown);
}

std::set<std::string> parseTypes(const json& object) {
  const auto member = object.find("types");
  if (member == object.end()) return {};
  if (!member->is_array() || member->empty() || !std::ranges::all_of(*member, isType)) {
    refuse(
        "\"types\" must be an array with some of session-first, session-start, session-stop, "
        "ad-attempt, ad-zone-attempt, config");
  }
  return member->get<std::set<std::string>>();
}

std::shared_ptr<const json> parseMatch(const json& object) {
  const auto member = object.find("match");
  if (member == object.end()) return nullptr;
  const bool fits = member->is_object() && member->size() <= kMostMatches &&
                    std::ranges::all_of(*member, [](const json& value) {
                      return value.is_primitive() && value.dump().size() <= kLongestText;
                    });
  if (!fits) refuse("\"match\" must be an object of at most 16 texts, numbers or booleans");
  return std::make_shared<const json>(*member);
}

std::string limits(double lowest, double highest) {
  const auto text = [](double limit) { return std::to_string(static_cast<long>(limit)); };
  return text(lowest) + " to " + text(highest);
}

double numberIn(const json& object, const char* key, double lowest, double highest) {
  const json& value = object.at(key);
  const double number = value.is_number() ? value.get<double>() : NAN;
  if (!(number >= lowest && number <= highest)) {
    refuse("\"" + std::string(key) + "\" must be a number from " + limits(lowest, highest));
  }
  return number;
}

int parseInteger(const json& object, const char* key, int lowest, int highest) {
  const double number = numberIn(object, key, lowest, highest);
  if (number != std::floor(number)) refuse("\"" + std::string(key) + "\" must be a whole number");
  return static_cast<int>(number);
}

std::string parseError(const json& object) {
  const auto member = object.find("error");
  if (member == object.end()) return kDefaultError;
  if (!member->is_string() || member->get_ref<const std::string&>().size() > kLongestText) {
    refuse("\"error\" must be a text of at most 1000 bytes");
  }
  return *member;
}

bool parseToHttp(const json& object) {
  const auto member = object.find("to");
  if (member == object.end() || *member == "https") return false;
  if (*member != "http") refuse("\"to\" must be \"https\" or \"http\"");
  return true;
}

std::uint64_t parseSeed(const json& object) {
  if (!object.contains("seed")) return 1;
  if (!object.contains("share")) refuse("a \"seed\" needs a \"share\"");
  if (!object["seed"].is_number_integer() || object["seed"] < 0) {
    refuse("\"seed\" must be a whole number that is not negative");
  }
  return object["seed"];
}

void parseHowOften(const json& object, Fault& fault) {
  if (object.contains("times") && object.contains("share")) {
    refuse("a fault has \"times\" or a \"share\", not both");
  }
  if (object.contains("times")) fault.times = parseInteger(object, "times", 1, kMostTimes);
  if (object.contains("share")) fault.share = numberIn(object, "share", 0, 1);
  fault.seed = parseSeed(object);
}

int parseStatus(const json& object, Effect effect) {
  if (object.contains("status")) {
    return parseInteger(object, "status", kLowestStatus, kHighestStatus);
  }
  if (effect == Effect::kStatus) refuse("the effect \"status\" needs a \"status\"");
  return Fault().status;
}

double parseSeconds(const json& object, Effect effect) {
  if (object.contains("seconds")) return numberIn(object, "seconds", 0, kLongestSeconds);
  return isATime(effect) ? kDefaultSeconds : 0;
}

bool isOfFault(const std::string& key) {
  constexpr std::array<std::string_view, 7> kKeys = {"status", "error", "seconds", "to",
                                                     "times",  "share", "seed"};
  return std::ranges::find(kKeys, key) != kKeys.end();
}

void takeAssignment(std::string_view assignment, json& object) {
  const auto sign = assignment.find('=');
  if (sign == std::string_view::npos || sign == 0) {
    refuse("a fault has KEY=VALUE after its effect, not \"" + std::string(assignment) + "\"");
  }
  const std::string key(assignment.substr(0, sign));
  const std::string value(assignment.substr(sign + 1));
  if (key == "type") {
    object["types"].push_back(value);
  } else if (isOfFault(key)) {
    object[key] = key == "error" ? json(value) : jsonOrText(value);
  } else {
    object["match"][key] = jsonOrText(value);
  }
}

bool isUtf8(const std::string& text) {
  try {
    json(text).dump();
    return true;
  } catch (const json::exception&) {
    return false;
  }
}

// The text up to the next comma, which is taken off with it.
std::string_view takePart(std::string_view& text) {
  const std::string_view part = text.substr(0, text.find(','));
  text.remove_prefix(std::min(text.size(), part.size() + 1));
  return part;
}

}  // namespace

std::string_view nameOf(Effect effect) { return kEffects[static_cast<std::size_t>(effect)]; }

bool actsOnConnection(Effect effect) {
  return isOneOf(effect,
                 {Effect::kCutBefore, Effect::kExpiredCertificate, Effect::kWrongHostCertificate});
}

bool isSpent(const Fault& fault) { return fault.times && fault.hits >= *fault.times; }

Fault parseFault(const json& object) {
  if (!object.is_object()) refuse("a fault is a JSON object");
  Fault fault;
  fault.effect = parseEffect(object);
  checkMembers(object, fault.effect);
  fault.types = parseTypes(object);
  fault.match = parseMatch(object);
  fault.status = parseStatus(object, fault.effect);
  fault.error = parseError(object);
  fault.seconds = parseSeconds(object, fault.effect);
  fault.toHttp = parseToHttp(object);
  parseHowOften(object, fault);
  return fault;
}

Fault parseFaultSpec(std::string_view spec) {
  if (!isUtf8(std::string(spec))) refuse("a fault must be in UTF-8");
  json object = {{"effect", std::string(takePart(spec))}};
  while (!spec.empty()) takeAssignment(takePart(spec), object);
  return parseFault(object);
}

json toJson(const Fault& fault) {
  json shown = {{"id", fault.id}, {"effect", nameOf(fault.effect)}, {"hits", fault.hits}};
  if (!fault.types.empty()) shown["types"] = fault.types;
  if (fault.match && !fault.match->empty()) shown["match"] = *fault.match;
  if (hasStatus(fault.effect)) shown["status"] = fault.status;
  if (fault.effect == Effect::kPermanent) shown["error"] = fault.error;
  if (isATime(fault.effect) || fault.seconds > 0) shown["seconds"] = fault.seconds;
  if (fault.effect == Effect::kRedirect) shown["to"] = fault.toHttp ? "http" : "https";
  if (fault.times) shown["times"] = *fault.times;
  if (fault.times) shown["left"] = *fault.times - fault.hits;
  if (fault.share) shown["share"] = *fault.share;
  if (fault.share) shown["seed"] = fault.seed;
  return shown;
}

}  // namespace zln::collector
