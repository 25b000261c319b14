#pragma once

#include <charconv>
#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace zln {

// The options of a test's program, each a name and a value. Anything else ends the program with its
// usage and the status 2.
class CommandLine {
 public:
  // False when the value is none.
  using Take = std::function<bool(const std::string& value)>;

  explicit CommandLine(const char* usage) : usage_(usage) {}

  CommandLine& option(const std::string& name, Take take) {
    options_[name] = std::move(take);
    return *this;
  }
  CommandLine& option(const std::string& name, std::string& target) {
    return option(name, [&target](const std::string& value) {
      target = value;
      return true;
    });
  }
  template <std::integral Number>
  CommandLine& option(const std::string& name, Number& target) {
    return option(name, [&](const std::string& value) { return readNumber(value, target); });
  }

  void read(int count, char** words) const {
    for (int at = 1; at < count; at += 2) {
      const auto found = options_.find(words[at]);
      if (found != options_.end() && at + 1 < count && found->second(words[at + 1])) continue;
      std::fprintf(stderr, "usage: %s\n", usage_);
      std::exit(2);
    }
  }

  template <std::integral Number>
  static bool readNumber(const std::string& text, Number& number) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
  }

 private:
  const char* usage_;
  std::map<std::string, Take> options_;
};

}  // namespace zln
