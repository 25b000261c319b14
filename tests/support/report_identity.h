#pragma once

#include <compare>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace zln {

// The string under a key; empty when there is none.
inline std::string textIn(const Dictionary& dictionary, std::string_view key) {
  const std::string* text = dictionary.findString(key);
  return text == nullptr ? std::string() : *text;
}

// Of nlohmann's JSON, whose header takes long to compile for those that have none.
template <typename Json>
requires requires(const Json& object) { object.is_object(); }
std::string textIn(const Json& object, std::string_view key) {
  const auto found = object.is_object() ? object.find(key) : object.end();
  if (found == object.end() || !found->is_string()) return {};
  return found->template get<std::string>();
}

// What makes two dictionaries the same report, wherever they are found: in the library's files, in
// a request, at the collector. An attempt has an identifier of its own, a session's reports have
// the session's.
struct ReportIdentity {
  std::string type;
  std::string id;

  bool isReport() const { return !type.empty() && !id.empty(); }
  std::string text() const { return type + ' ' + id; }
  friend auto operator<=>(const ReportIdentity&, const ReportIdentity&) = default;
};

// `textOf` returns the string under a key, empty when there is none.
template <typename TextOf>
ReportIdentity reportIdentityBy(TextOf textOf) {
  ReportIdentity identity{textOf("type"), textOf("adEventId")};
  if (identity.id.empty()) identity.id = textOf("sessionId");
  return identity;
}

// Of a Dictionary, or of parsed JSON.
template <typename Parsed>
ReportIdentity reportIdentity(const Parsed& report) {
  return reportIdentityBy([&](const char* key) { return textIn(report, key); });
}

// Of a report as its element stands in the report file, which takes a fraction of the time that
// parsing does.
inline ReportIdentity reportIdentityInElement(std::string_view element) {
  return reportIdentityBy([element](const char* key) {
    const std::string begin = std::string("<key>") + key + "</key>\n\t\t<string>";
    const std::size_t at = element.find(begin);
    if (at == std::string_view::npos) return std::string();
    const std::string_view text = element.substr(at + begin.size());
    return std::string(text.substr(0, text.find('<')));
  });
}

}  // namespace zln
