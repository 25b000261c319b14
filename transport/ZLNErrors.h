#pragma once

#include <string>

#include "platform/error.h"

namespace zln {

inline constexpr char kZelnorErrorDomain[] = "Zelnor";

// The library's own errors.
inline constexpr int kNoReportErrorCode = -13;
inline constexpr int kServerReplyErrorCode = -16;

// Sorts transport errors. Has no state.
class ZLNErrors {
 public:
  // True when trying again is of no use. Only the code counts, whatever the domain.
  static bool isNetworkErrorPermanent(const Error& error);
};

}  // namespace zln
