#pragma once

#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/value.h"

namespace zln {

// The installation's small key-value store. Any thread may call it.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  // Absent when there is no such value. When the store cannot be read, only what this process has
  // set is there, and `error`, unless null, says why.
  virtual std::optional<Value> get(const std::string& key, Error* error) = 0;
  // Every thread reads the new value at once. A value that a property list can hold.
  virtual void set(const std::string& key, Value value) = 0;
  // Returns once the disk has all that was set; false when it cannot be written.
  virtual bool synchronize() = 0;
};

}  // namespace zln
