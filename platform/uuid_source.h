#pragma once

#include <string>

namespace zln {

// Makes identifiers: random version 4 UUIDs as 36 upper-case characters. Any thread may call it.
class UuidSource {
 public:
  virtual ~UuidSource() = default;
  virtual std::string next() = 0;
};

}  // namespace zln
