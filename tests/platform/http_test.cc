#include "platform/http.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/identity.h"

namespace zln {
namespace {

TEST(HttpResponseTest, ShowsUrlStatusAndSortedHeaders) {
  const HttpResponse response{
      "https://h/session", 200, {{"Server", "unit"}, {"Content-Type", "application/json"}}};

  EXPECT_EQ("<NSHTTPURLResponse: " + addressText(&response) +
                "> { URL: https://h/session } { Status Code: 200, Headers {\n"
                "    \"Content-Type\" =     (\n"
                "        \"application/json\"\n"
                "    );\n"
                "    Server =     (\n"
                "        unit\n"
                "    );\n"
                "} }",
            response.description());
}

TEST(HttpResponseTest, ShowsNoHeadersWhenThereAreNone) {
  const HttpResponse response{"https://h/", 404, {}};

  EXPECT_EQ("<NSHTTPURLResponse: " + addressText(&response) +
                "> { URL: https://h/ } { Status Code: 404, Headers {\n} }",
            response.description());
}

TEST(HttpResponseTest, ListsTheValuesOfARepeatedHeader) {
  const HttpResponse response{"https://h/", 200, {{"Via", "a"}, {"Via", "b"}}};

  EXPECT_EQ("<NSHTTPURLResponse: " + addressText(&response) +
                "> { URL: https://h/ } { Status Code: 200, Headers {\n"
                "    Via =     (\n"
                "        a,\n"
                "        b\n"
                "    );\n"
                "} }",
            response.description());
}

}  // namespace
}  // namespace zln
