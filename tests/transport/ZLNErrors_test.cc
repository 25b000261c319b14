#include "transport/ZLNErrors.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace zln {
namespace {

class ZLNErrorsPermanentTest : public testing::TestWithParam<std::int64_t> {};

INSTANTIATE_TEST_SUITE_P(Codes, ZLNErrorsPermanentTest, testing::Values(-999, -1002, -1011, 3072));

TEST_P(ZLNErrorsPermanentTest, TheCodeIsPermanentWhateverItsDomain) {
  for (const char* domain : {"NSURLErrorDomain", "NSCocoaErrorDomain", "Zelnor", ""}) {
    EXPECT_TRUE(ZLNErrors::isNetworkErrorPermanent(Error{domain, GetParam(), "text", {}}))
        << domain;
  }
}

class ZLNErrorsTemporaryTest : public testing::TestWithParam<std::int64_t> {};

// Among them neighbours, opposite signs and numbers that only look the same in 32 bits.
INSTANTIATE_TEST_SUITE_P(Codes, ZLNErrorsTemporaryTest,
                         testing::Values(0, -1, -998, -1000, -1001, -1003, -1004, -1005, -1007,
                                         -1009, -1010, -1012, -1017, -1022, -1103, -1200, -1202,
                                         -13, -16, 999, 1002, 1011, -3072, 3071, 3073, 3840,
                                         4294966297, -4294964224));

TEST_P(ZLNErrorsTemporaryTest, TheCodeIsTemporaryWhateverItsDomain) {
  for (const char* domain : {"NSURLErrorDomain", "NSCocoaErrorDomain", "Zelnor", ""}) {
    EXPECT_FALSE(ZLNErrors::isNetworkErrorPermanent(Error{domain, GetParam(), "text", {}}))
        << domain;
  }
}

}  // namespace
}  // namespace zln
