#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace zln {

// Gives an environment variable another value while it lives.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const std::string& value) : name_(std::move(name)) {
    if (const char* before = std::getenv(name_.c_str())) before_ = before;
    set(value);
  }
  ~EnvironmentVariable() {
    if (before_) {
      set(*before_);
    } else {
      unsetenv(name_.c_str());
    }
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

  void set(const std::string& value) { setenv(name_.c_str(), value.c_str(), 1); }

 private:
  const std::string name_;
  std::optional<std::string> before_;
};

}  // namespace zln
