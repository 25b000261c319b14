#include "transport/ZLNErrors.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace zln {
namespace {

void expectWhateverTheDomain(bool permanent, std::int64_t code) {
  for (const char* domain : {"NSURLErrorDomain", "NSCocoaErrorDomain", "Zelnor", ""}) {
    EXPECT_EQ(permanent, ZLNErrors::isNetworkErrorPermanent(Error{domain, code, "text", {}}))
        << domain << " " << code;
  }
}

TEST(ZLNErrorsTest, FourCodesArePermanent) {
  for (const std::int64_t code : {-999, -1002, -1011, 3072}) expectWhateverTheDomain(true, code);
}

// Among them neighbours, opposite signs and numbers that only look the same in 32 bits.
TEST(ZLNErrorsTest, AllOtherCodesAreTemporary) {
  for (const std::int64_t code :
       {0L,     -1L,    -998L,  -1000L, -1001L, -1003L, -1004L,      -1005L,      -1007L, -1009L,
        -1010L, -1012L, -1017L, -1022L, -1103L, -1200L, -1202L,      -13L,        -16L,   999L,
        1002L,  1011L,  -3072L, 3071L,  3073L,  3840L,  4294966297L, -4294964224L}) {
    expectWhateverTheDomain(false, code);
  }
}

}  // namespace
}  // namespace zln
