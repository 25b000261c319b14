#include "tests/collector/json_text.h"

#include "collector/json.h"

namespace zln::collector {
namespace {

using nlohmann::json;

json valueAt(const std::string& text, const std::string& place) {
  const json whole = json::parse(text, nullptr, /*allow_exceptions=*/false);
  const json::json_pointer pointer(place.empty() ? "" : "/" + place);
  return whole.contains(pointer) ? whole.at(pointer) : json(json::value_t::discarded);
}

std::string shown(const json& value) {
  if (value.is_discarded()) return "";
  return value.is_string() ? value.get<std::string>() : textOf(value);
}

}  // namespace

Json::Json(const std::string& text) : value_(std::make_shared<const json>(json::parse(text))) {}

Json::Json(double number) : value_(std::make_shared<const json>(number)) {}

std::string textOf(const json& value) { return value.dump(); }

std::string JsonText::operator[](const std::string& place) const {
  return shown(valueAt(text_, place));
}

std::vector<std::string> JsonText::each(const std::string& place, const std::string& member) const {
  std::vector<std::string> values;
  for (const json& object : valueAt(text_, place)) values.push_back(shown(object.at(member)));
  return values;
}

}  // namespace zln::collector
