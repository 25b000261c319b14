#pragma once

#include <string>
#include <vector>

#include "platform/uuid_source.h"

namespace zln {

// Gives "00000000-0000-4000-8000-000000000001" first and counts on in upper-case hexadecimal.
class FakeUuids : public UuidSource {
 public:
  std::string next() override;

  // All identifiers given so far, in order.
  const std::vector<std::string>& issued() const { return issued_; }

 private:
  std::vector<std::string> issued_;
};

}  // namespace zln
