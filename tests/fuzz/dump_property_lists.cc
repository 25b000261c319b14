// Reads documents as the library reads property lists, for compare_property_lists.py. On the input
// each document follows its length, four bytes with the highest first. For each a line of JSON
// comes out: what was read, every value beside its kind, or why nothing was.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/property_list.h"

namespace {

using Json = nlohmann::json;
using zln::Value;

std::string hexadecimal(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

Json numberJson(const zln::Number& number) {
  if (number.isBoolean()) return {"bool", number.boolValue()};
  if (!number.isReal()) return {"integer", std::to_string(number.longValue())};
  return {"real", std::to_string(std::bit_cast<std::uint64_t>(number.doubleValue()))};
}

Json toJson(const Value& value) {
  if (const std::string* text = value.string()) return {"string", *text};
  if (const zln::Number* number = value.number()) return numberJson(*number);
  if (const zln::Date* date = value.date()) return {"date", date->secondsSince1970};
  if (const zln::Data* data = value.data()) return {"data", hexadecimal(data->bytes)};
  Json items = Json::array();
  if (const zln::Array* array = value.array()) {
    for (const Value& element : *array) items.push_back(toJson(element));
    return {"array", items};
  }
  for (const auto& [key, element] : value.dictionary()->entries()) {
    items.push_back(Json::array({key, toJson(element)}));
  }
  return {"dict", items};
}

std::optional<std::string> nextDocument() {
  unsigned char head[4];
  if (!std::cin.read(reinterpret_cast<char*>(head), sizeof head)) return std::nullopt;
  std::string document(
      std::size_t{head[0]} << 24 | std::size_t{head[1]} << 16 | std::size_t{head[2]} << 8 | head[3],
      '\0');
  std::cin.read(document.data(), static_cast<std::streamsize>(document.size()));
  return document;
}

}  // namespace

int main() {
  while (const auto document = nextDocument()) {
    std::string problem;
    const std::optional<Value> root = zln::property_list::read(*document, &problem);
    const Json line =
        root ? Json::array({"read", toJson(*root)}) : Json::array({"refused", problem});
    std::cout << line.dump() << "\n";
  }
  return 0;
}
