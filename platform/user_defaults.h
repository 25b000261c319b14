#pragma once

#include <optional>
#include <string>

#include "platform/value.h"

namespace zln {

// The installation's small key-value store. Any thread may call it.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  virtual std::optional<Value> get(const std::string& key) = 0;
  // Every thread reads the new value at once.
  virtual void set(const std::string& key, Value value) = 0;
  // Returns once all that was set is on disk; false when it cannot be written.
  virtual bool synchronize() = 0;
};

}  // namespace zln
