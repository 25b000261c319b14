#include "platform/posix/uuid_source_posix.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "tests/contract/uuid_source_contract.h"

namespace zln {
namespace {

class PosixUuids {
 public:
  UuidSource& uuids() { return uuids_; }

 private:
  UuidSourcePosix uuids_;
};

// Without the system's random numbers.
class PosixUuidsWithoutRandom {
 public:
  UuidSource& uuids() { return uuids_; }

 private:
  UuidSourcePosix uuids_{[](std::span<unsigned char>) { return false; }};
};

using Machines = testing::Types<PosixUuids, PosixUuidsWithoutRandom>;
INSTANTIATE_TYPED_TEST_SUITE_P(Posix, UuidSourceContract, Machines);

TEST(UuidSourcePosixTest, TheBytesOfTheSourceStandInOrderWithTheMarksOfVersion4) {
  UuidSourcePosix uuids([](std::span<unsigned char> bytes) {
    unsigned char next = 0xf0;
    for (unsigned char& byte : bytes) byte = next++;
    return true;
  });

  EXPECT_EQ("F0F1F2F3-F4F5-46F7-B8F9-FAFBFCFDFEFF", uuids.next());
}

TEST(UuidSourcePosixTest, ZeroBytesStillCarryTheMarks) {
  UuidSourcePosix uuids([](std::span<unsigned char> bytes) {
    std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    return true;
  });

  EXPECT_EQ("00000000-0000-4000-8000-000000000000", uuids.next());
}

}  // namespace
}  // namespace zln
