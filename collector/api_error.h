#pragma once

#include <stdexcept>
#include <string>

namespace zln::collector {

// A request to the interface for programs cannot be fulfilled; the text is for people.
class ApiError : public std::runtime_error {
 public:
  ApiError(int status, const std::string& text) : std::runtime_error(text), status_(status) {}

  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace zln::collector
