#include "platform/identity.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(IdentityTest, AddressIsLowerCaseHexadecimal) {
  EXPECT_EQ("0x600000c04050", addressText(reinterpret_cast<const void*>(0x600000C04050)));
}

TEST(IdentityTest, AddressOfNullIsZero) { EXPECT_EQ("0x0", addressText(nullptr)); }

TEST(IdentityTest, TextIsClassNameAndAddress) {
  EXPECT_EQ("<ZLNReportAdAttempt: 0x600000c04050>",
            identityText("ZLNReportAdAttempt", reinterpret_cast<const void*>(0x600000C04050)));
}

}  // namespace
}  // namespace zln
