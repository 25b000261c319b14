#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

namespace zln::collector {

// JSON as text, for tests: the JSON library takes longer to compile than most of them.

// A value for what takes JSON, from its text.
class Json {
 public:
  Json(const std::string& text);
  Json(const char* text) : Json(std::string(text)) {}
  explicit Json(double number);

  operator const nlohmann::json&() const { return *value_; }

 private:
  std::shared_ptr<const nlohmann::json> value_;
};

// Compact, the keys in their order.
std::string textOf(const nlohmann::json& value);

// A text in which values are looked up.
class JsonText {
 public:
  explicit JsonText(std::string text) : text_(std::move(text)) {}

  const std::string& text() const { return text_; }
  // The value at a place such as "reports/0/id": a string as it is, other values as `textOf` has
  // them, "" for none.
  std::string operator[](const std::string& place) const;
  // The values of one member of each object in the array at a place.
  std::vector<std::string> each(const std::string& place, const std::string& member) const;

 private:
  std::string text_;
};

}  // namespace zln::collector
