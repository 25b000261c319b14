#include "platform/http.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/identity.h"

namespace zln {
namespace {

TEST(HttpResponseTest, ShowsUrlStatusAndTheSortedHeadersWithAllTheirValues) {
  const HttpResponse response{
      "https://h/session", 200, {{"Via", "a"}, {"Content-Type", "application/json"}, {"Via", "b"}}};
  const HttpResponse bare{"https://h/", 404, {}};

  EXPECT_EQ("<NSHTTPURLResponse: " + addressText(&response) +
                "> { URL: https://h/session } { Status Code: 200, Headers {\n"
                "    \"Content-Type\" =     (\n"
                "        \"application/json\"\n"
                "    );\n"
                "    Via =     (\n"
                "        a,\n"
                "        b\n"
                "    );\n"
                "} }",
            response.description());
  EXPECT_EQ("<NSHTTPURLResponse: " + addressText(&bare) +
                "> { URL: https://h/ } { Status Code: 404, Headers {\n} }",
            bare.description());
}

}  // namespace
}  // namespace zln
