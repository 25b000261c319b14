#include "testkit/fake_uuids.h"

namespace zln {

std::string FakeUuids::next() {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string uuid = "00000000-0000-4000-8000-000000000000";
  std::size_t count = issued_.size() + 1;
  for (auto digit = uuid.rbegin(); count != 0; ++digit, count /= 16) *digit = kDigits[count % 16];
  issued_.push_back(uuid);
  return uuid;
}

}  // namespace zln
