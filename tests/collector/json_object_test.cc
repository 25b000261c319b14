#include "collector/json_object.h"

#include <gtest/gtest.h>

#include <string>

namespace zln::collector {
namespace {

std::string nested(int depth) {
  return R"({"key":)" + std::string(static_cast<std::size_t>(depth), '[') +
         std::string(static_cast<std::size_t>(depth), ']') + "}";
}

TEST(JsonObjectTest, IsParsed) {
  EXPECT_EQ(nlohmann::json({{"key", 1.5}}), parseObject(R"( {"key":1.5} )"));
}

TEST(JsonObjectTest, IsNoOtherText) {
  EXPECT_EQ(std::nullopt, parseObject(""));
  EXPECT_EQ(std::nullopt, parseObject("[1]"));
  EXPECT_EQ(std::nullopt, parseObject("\"text\""));
  EXPECT_EQ(std::nullopt, parseObject(R"({"key":)"));
  EXPECT_EQ(std::nullopt, parseObject(R"({"key":1} {)"));
  EXPECT_EQ(std::nullopt, parseObject("{\"key\":\"\xFF\"}"));
  EXPECT_EQ(std::nullopt, parseObject(R"({"key":"\uD800"})"));
  EXPECT_EQ(std::nullopt, parseObject(std::string("{\"key\":\"\0\"}", 11)));
  EXPECT_EQ(std::nullopt, parseObject(R"({"key":1e400})"));
}

TEST(JsonObjectTest, IsNestedNoDeeperThanAReportCanBe) {
  EXPECT_TRUE(parseObject(nested(32)));
  EXPECT_EQ(std::nullopt, parseObject(nested(33)));
  EXPECT_EQ(std::nullopt, parseObject(nested(200000)));
}

}  // namespace
}  // namespace zln::collector
