#include "tests/support/request_schemas.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <stdexcept>

#include "tests/support/file_contents.h"

namespace zln {
namespace {

using Json = nlohmann::json;

const std::map<std::string, std::string> kSchemaOfType = {
    {"ReportTypeSessionFirst", "session-first"},    {"ReportTypeSessionStart", "session-start"},
    {"ReportTypeSessionStop", "session-stop"},      {"ReportTypeAdAttempt", "ad-attempt"},
    {"ReportTypeAdZoneAttempt", "ad-zone-attempt"},
};

bool isOfType(const Json& value, const std::string& type) {
  if (type == "object") return value.is_object();
  if (type == "string") return value.is_string();
  if (type == "number") return value.is_number();
  if (type == "boolean") return value.is_boolean();
  throw std::runtime_error("schemas have no type " + type + " so far");
}

bool matches(const std::string& text, const std::string& pattern) {
  static std::map<std::string, std::regex> compiled;
  return std::regex_search(text, compiled.try_emplace(pattern, pattern).first->second);
}

bool areMembersOf(const Json& names, const Json& object) {
  return std::all_of(names.begin(), names.end(),
                     [&](const std::string& name) { return object.contains(name); });
}

bool hasNoOtherMembers(const Json& object, const Json& known) {
  return std::all_of(object.items().begin(), object.items().end(),
                     [&](const auto& member) { return known.contains(member.key()); });
}

// What the schema demands that the value breaks; empty when there is nothing.
std::string brokenDemand(const Json& schema, const Json& value) {
  for (const auto& [word, demand] : schema.items()) {
    bool isMet = true;
    if (word == "type") {
      isMet = isOfType(value, demand);
    } else if (word == "const") {
      isMet = value == demand;
    } else if (word == "minimum") {
      isMet = !value.is_number() || value >= demand;
    } else if (word == "pattern") {
      isMet = !value.is_string() || matches(value, demand);
    } else if (word == "required") {
      isMet = areMembersOf(demand, value);
    } else if (word == "additionalProperties") {
      isMet = demand != false || hasNoOtherMembers(value, schema.at("properties"));
    } else if (word == "properties") {
      for (const auto& [name, member] : demand.items()) {
        const std::string broken =
            value.contains(name) ? brokenDemand(member, value[name]) : std::string();
        if (!broken.empty()) return name + ": " + broken;
      }
    } else if (word != "$schema" && word != "title" && word != "description") {
      throw std::runtime_error("schemas do not say " + word + " so far");
    }
    if (!isMet) return word + " " + demand.dump();
  }
  return "";
}

}  // namespace

std::string schemaViolation(const std::string& schemaFolder, const ReceivedRequest& request) {
  const Json body = Json::parse(request.body);
  const std::string name = request.target == "/config"
                               ? "config-request"
                               : kSchemaOfType.at(body.at("type").get<std::string>());
  static std::map<std::string, Json> schemas;
  Json& schema = schemas[name];
  if (schema.is_null()) {
    schema = Json::parse(contentsOf(schemaFolder + "/" + name + ".schema.json"));
  }
  const std::string broken = brokenDemand(schema, body);
  return broken.empty() ? "" : name + ", " + broken + " in " + request.body;
}

}  // namespace zln
