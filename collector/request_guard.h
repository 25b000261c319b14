#pragma once

#include <optional>
#include <string>

namespace httplib {
struct Request;
}  // namespace httplib

namespace zln::collector {

// Keeps the pages of others, which a browser on this machine may have open, from using the server
// behind the back of its user.
class RequestGuard {
 public:
  // `address` is the one that the server listens on.
  explicit RequestGuard(std::string address);

  // Why a request is refused, for people; nothing when it is not.
  std::optional<std::string> refusalOf(const httplib::Request& request) const;

 private:
  bool isOwnHost(const std::string& host) const;

  const std::string address_;
  const bool anywhere_;
};

}  // namespace zln::collector
