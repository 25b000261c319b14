#include "platform/path.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(PathTest, JoinsWithOneSeparatorAndKeepsTheRoot) {
  const struct {
    const char* path;
    const char* component;
    const char* joined;
  } rows[] = {
      {"/x", "y", "/x/y"},
      {"/x/", "y", "/x/y"},
      {"/x", "/y", "/x/y"},
      {"/x/", "/com.zelnor.sdk/", "/x/com.zelnor.sdk"},
      {"//x///", "//y//z///", "/x/y/z"},
      {"/x", "", "/x"},
      {"", "", ""},
      {"", "y/z", "y/z"},
      {"", "/y", "/y"},
      {"/", "y", "/y"},
      {"/", "", "/"},
      {"//", "/", "/"},
      {"", "/", "/"},
  };
  for (const auto& [path, component, joined] : rows) {
    EXPECT_EQ(joined, appendPathComponent(path, component)) << path << " and " << component;
  }
}

}  // namespace
}  // namespace zln
