#include "platform/error.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

namespace zln {
namespace {

TEST(ErrorTest, ShowsDomainCodeTextAndFurtherFacts) {
  const std::pair<Error, const char*> rows[] = {
      {{"Zelnor", -13, "No report to report", {}},
       "Error Domain=Zelnor Code=-13 \"No report to report\" "
       "UserInfo={NSLocalizedDescription=No report to report}"},
      {{"D", -16, std::nullopt, {}}, "Error Domain=D Code=-16 \"(null)\""},
      {{kUrlErrorDomain,
        -1001,
        "The request timed out.",
        {{"NSErrorFailingURLKey", "https://h/session"}, {"A", "b"}}},
       "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\" "
       "UserInfo={NSLocalizedDescription=The request timed out., "
       "NSErrorFailingURLKey=https://h/session, A=b}"},
      {{kCocoaErrorDomain, 4, "", {}},
       "Error Domain=NSCocoaErrorDomain Code=4 \"\" UserInfo={NSLocalizedDescription=}"},
      // The system has texts for its own codes.
      {{kCocoaErrorDomain, 3840, std::nullopt, {{"NSDebugDescription", "no array"}}},
       "Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because it isn’t in "
       "the correct format.\" UserInfo={NSDebugDescription=no array}"},
      {{kPosixErrorDomain, 2, std::nullopt, {}},
       "Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\""},
      {{kPosixErrorDomain, 13, std::nullopt, {}},
       "Error Domain=NSPOSIXErrorDomain Code=13 \"Permission denied\""},
      {{kCocoaErrorDomain, 99999, std::nullopt, {}},
       "Error Domain=NSCocoaErrorDomain Code=99999 \"(null)\""},
      {{kPosixErrorDomain, 99999, std::nullopt, {}},
       "Error Domain=NSPOSIXErrorDomain Code=99999 \"(null)\""},
  };
  for (const auto& [error, text] : rows) EXPECT_EQ(text, error.description());
}

TEST(ErrorTest, IsStoredOnlyWhereItIsAskedFor) {
  Error error;

  fillError(&error, Error{"D", 1, std::nullopt, {}});
  fillError(nullptr, Error{"E", 2, std::nullopt, {}});

  EXPECT_EQ((Error{"D", 1, std::nullopt, {}}), error);
}

}  // namespace
}  // namespace zln
