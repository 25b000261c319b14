#include "platform/identity.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(IdentityTest, IsTheClassNameAndTheAddressInLowerCaseHexadecimal) {
  const auto* const address = reinterpret_cast<const void*>(0x600000C04050);

  EXPECT_EQ("0x600000c04050", addressText(address));
  EXPECT_EQ("0x0", addressText(nullptr));
  EXPECT_EQ("<ZLNReportAdAttempt: 0x600000c04050>", identityText("ZLNReportAdAttempt", address));
}

}  // namespace
}  // namespace zln
