#include "collector/json_object.h"

namespace zln::collector {
namespace {

constexpr int kDeepestNesting = 32;

}  // namespace

std::optional<nlohmann::json> parseObject(std::string_view text) {
  bool tooDeep = false;
  const auto watchDepth = [&](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
    tooDeep = tooDeep || depth > kDeepestNesting;
    return !tooDeep;
  };
  nlohmann::json object = nlohmann::json::parse(text, watchDepth, /*allow_exceptions=*/false);
  if (tooDeep || !object.is_object()) return std::nullopt;
  return object;
}

nlohmann::json jsonOrText(const std::string& text) {
  nlohmann::json value = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  return value.is_primitive() && !value.is_discarded() ? value : nlohmann::json(text);
}

}  // namespace zln::collector
