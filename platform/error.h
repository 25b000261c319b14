#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zln {

// What went wrong: whose error it is, which one, and a text for people.
struct Error {
  std::string domain;
  std::int64_t code = 0;
  std::optional<std::string> localizedDescription;
  // Further facts, shown after the description in this order.
  std::vector<std::pair<std::string, std::string>> userInfo;

  // "Error Domain=D Code=-16 "text" UserInfo={NSLocalizedDescription=text}".
  std::string description() const;

  friend bool operator==(const Error&, const Error&) = default;
};

inline constexpr char kCocoaErrorDomain[] = "NSCocoaErrorDomain";
inline constexpr char kPosixErrorDomain[] = "NSPOSIXErrorDomain";
inline constexpr char kUrlErrorDomain[] = "NSURLErrorDomain";

// Stores `error` where the caller asked for it.
inline void fillError(Error* target, Error error) {
  if (target != nullptr) *target = std::move(error);
}

}  // namespace zln
