#include "platform/error.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(ErrorTest, ShowsDomainCodeAndText) {
  const Error error{"Zelnor", -13, "No report to report", {}};

  EXPECT_EQ(
      "Error Domain=Zelnor Code=-13 \"No report to report\" "
      "UserInfo={NSLocalizedDescription=No report to report}",
      error.description());
}

TEST(ErrorTest, ShowsNoUserInfoWhenThereIsNone) {
  const Error error{"D", -16, std::nullopt, {}};

  EXPECT_EQ("Error Domain=D Code=-16 \"(null)\"", error.description());
}

TEST(ErrorTest, ShowsFurtherFactsAfterTheText) {
  const Error error{kUrlErrorDomain,
                    -1001,
                    "The request timed out.",
                    {{"NSErrorFailingURLKey", "https://h/session"}, {"A", "b"}}};

  EXPECT_EQ(
      "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\" "
      "UserInfo={NSLocalizedDescription=The request timed out., "
      "NSErrorFailingURLKey=https://h/session, A=b}",
      error.description());
}

TEST(ErrorTest, OfTheSystemHasATextForItsCode) {
  const Error error{kCocoaErrorDomain, 3840, std::nullopt, {{"NSDebugDescription", "no array"}}};

  EXPECT_EQ(
      "Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because it isn’t in "
      "the correct format.\" UserInfo={NSDebugDescription=no array}",
      error.description());
}

TEST(ErrorTest, OfTheKernelHasATextForItsCode) {
  EXPECT_EQ("Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"",
            (Error{kPosixErrorDomain, 2, std::nullopt, {}}).description());
  EXPECT_EQ("Error Domain=NSPOSIXErrorDomain Code=13 \"Permission denied\"",
            (Error{kPosixErrorDomain, 13, std::nullopt, {}}).description());
}

TEST(ErrorTest, OfTheSystemWithAnUnknownCodeHasNoText) {
  EXPECT_EQ("Error Domain=NSCocoaErrorDomain Code=99999 \"(null)\"",
            (Error{kCocoaErrorDomain, 99999, std::nullopt, {}}).description());
  EXPECT_EQ("Error Domain=NSPOSIXErrorDomain Code=99999 \"(null)\"",
            (Error{kPosixErrorDomain, 99999, std::nullopt, {}}).description());
}

TEST(ErrorTest, ShowsAnEmptyTextAsEmpty) {
  EXPECT_EQ("Error Domain=NSCocoaErrorDomain Code=4 \"\" UserInfo={NSLocalizedDescription=}",
            (Error{kCocoaErrorDomain, 4, "", {}}).description());
}

TEST(ErrorTest, IsStoredOnlyWhereItIsAskedFor) {
  Error error;

  fillError(&error, Error{"D", 1, std::nullopt, {}});
  fillError(nullptr, Error{"E", 2, std::nullopt, {}});

  EXPECT_EQ((Error{"D", 1, std::nullopt, {}}), error);
}

}  // namespace
}  // namespace zln
