#include "tests/support/request_schemas.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

namespace zln {
namespace {

using testing::StartsWith;

// How an ad attempt breaks its schema that has this value under this key, or has no such key when
// there is no value.
std::string violationWith(const std::string& key, const nlohmann::json& value) {
  nlohmann::json body = {{"userId", "01234567-89AB-4DEF-8123-456789ABCDEF"},
                         {"adEventId", "01234567-89AB-4DEF-8123-456789ABCDEF"},
                         {"type", "ReportTypeAdAttempt"},
                         {"platform", "iOS"},
                         {"network", "n"},
                         {"adType", "banner"},
                         {"fill", true}};
  body[key] = value;
  if (value.is_null()) body.erase(key);
  ReceivedRequest request;
  request.target = "/session";
  request.body = body.dump();
  return schemaViolation(ZLN_SCHEMA_FOLDER, request);
}

TEST(RequestSchemasTest, SayHowARequestBreaksThem) {
  EXPECT_EQ("", violationWith("network", "other"));
  EXPECT_THAT(violationWith("network", 1), StartsWith("ad-attempt, network: type \"string\" in {"));
  EXPECT_THAT(violationWith("fill", 1), StartsWith("ad-attempt, fill: type \"boolean\""));
  EXPECT_THAT(violationWith("network", nullptr), StartsWith("ad-attempt, required ["));
  EXPECT_THAT(violationWith("other", 1), StartsWith("ad-attempt, additionalProperties false"));
  EXPECT_THAT(violationWith("platform", "x"), StartsWith("ad-attempt, platform: const \"iOS\""));
  EXPECT_THAT(violationWith("userId", "01234567"), StartsWith("ad-attempt, userId: pattern "));
  ReceivedRequest stop;
  stop.target = "/session";
  stop.body = R"({"type":"ReportTypeSessionStop","totalDuration":-1})";
  EXPECT_THAT(schemaViolation(ZLN_SCHEMA_FOLDER, stop),
              StartsWith("session-stop, totalDuration: minimum 0"));
}

}  // namespace
}  // namespace zln
