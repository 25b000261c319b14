#pragma once

#include <optional>
#include <utility>

#include "reports/ZLNReportBase.h"

namespace zln {

// What stands under a key of the report's dictionary.
inline std::optional<Value> valueIn(const ZLNReportBase& report, const char* key) {
  const std::optional<Dictionary> dictionary = report.toDictionary();
  const Value* value = dictionary ? dictionary->find(key) : nullptr;
  if (value == nullptr) return std::nullopt;
  return *value;
}

// A report of a kind whose base gives it something else than its dictionary.
template <typename Kind>
class OddReport : public Kind {
 public:
  template <typename Source>
  OddReport(const Source& madeFrom, std::optional<Value> base)
      : Kind(madeFrom), base_(std::move(base)) {}

 protected:
  std::optional<Value> superSerialization() const override { return base_; }

 private:
  std::optional<Value> base_;
};

}  // namespace zln
