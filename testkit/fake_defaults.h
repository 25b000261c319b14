#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/user_defaults.h"
#include "testkit/journal.h"

namespace zln {

// User defaults in memory, empty at first.
class FakeDefaults : public UserDefaults {
 public:
  explicit FakeDefaults(Journal* journal = nullptr) : journal_(journal) {}

  std::optional<Value> get(const std::string& key, Error* error) override;
  void set(const std::string& key, Value value) override;
  bool synchronize() override;

  const std::map<std::string, Value>& values() const { return values_; }
  // How many times synchronize() has been called.
  std::size_t syncCount() const { return syncCount_; }
  void erase(const std::string& key);
  // Every get() fails with this error until it is called again with none.
  void failReads(std::optional<Error> error) { readError_ = std::move(error); }

 private:
  Journal* journal_;
  std::map<std::string, Value> values_;
  std::size_t syncCount_ = 0;
  std::optional<Error> readError_;
};

}  // namespace zln
