#include "collector/request_guard.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <optional>
#include <string>

namespace zln::collector {
namespace {

TEST(RequestGuardTest, AnswersUnderAllAddressesWhenListeningOnAll) {
  for (const std::string address : {"0.0.0.0", "::"}) {
    const RequestGuard guard(address);
    const auto refusalUnder = [&](const std::string& host) {
      httplib::Request request;
      request.method = "GET";
      request.headers = {{"Host", host}};
      return guard.refusalOf(request);
    };

    EXPECT_EQ(std::nullopt, refusalUnder("10.0.0.1:8480"));
    EXPECT_EQ(std::nullopt, refusalUnder("[fe80::1]:8480"));
    EXPECT_EQ("this is not the host that was asked for", refusalUnder("rebound.example:8480"));
  }
}

}  // namespace
}  // namespace zln::collector
