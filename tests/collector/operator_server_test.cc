#include "collector/operator_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "collector/embedded_files.h"
#include "collector/request_guard.h"
#include "tests/collector/raw_client.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kJson[] = "application/json";

class OperatorServerTest : public testing::Test {
 protected:
  json get(const std::string& path, int status = 200) {
    return read(collector_.page()->Get(path), path, status);
  }

  json post(const std::string& path, const json& body, int status = 200) {
    return read(collector_.page()->Post(path, body.dump(), kJson), path, status);
  }

  json put(const std::string& path, const json& body, int status = 200) {
    return read(collector_.page()->Put(path, body.dump(), kJson), path, status);
  }

  json remove(const std::string& path, int status) {
    return read(collector_.page()->Delete(path), path, status);
  }

  int statusOfPost(const httplib::Headers& headers, const std::string& body, const char* type) {
    const auto result = collector_.page()->Post("/api/settings/lint", headers, body, type);
    return result ? result->status : 0;
  }

  int statusOfGet(const httplib::Headers& headers, const std::string& path = "/api/status") {
    const auto result = collector_.page()->Get(path, headers);
    return result ? result->status : 0;
  }

  void send(const std::string& body) { collector_.answerTo("/session", body); }

  RunningCollector collector_;

 private:
  static json read(const httplib::Result& result, const std::string& path, int status) {
    if (!result) {
      ADD_FAILURE() << path << ": " << httplib::to_string(result.error());
      return json();
    }
    EXPECT_EQ(status, result->status) << path << ": " << result->body;
    return json::parse(result->body, nullptr, /*allow_exceptions=*/false);
  }
};

std::vector<int> idsOf(const json& list) {
  std::vector<int> ids;
  for (const json& row : list["reports"]) ids.push_back(row["id"]);
  return ids;
}

TEST_F(OperatorServerTest, TellsWhatRuns) {
  send(adAttempt());

  const json status = get("/api/status");

  EXPECT_EQ(collector_.gamePort(), status["ports"]["session-first"]);
  EXPECT_EQ(collector_.gamePort(), status["ports"]["config"]);
  EXPECT_EQ(collector_.pagePort(), status["page"]);
  EXPECT_EQ(collector_.certificates().authority, status["authority"].get<std::string>());
  EXPECT_EQ(false, status["rejectInvalid"]);
  EXPECT_EQ(1, status["reports"]);
  EXPECT_LT(1.7e9, status["started"]);
  EXPECT_TRUE(status["version"].is_string());
  EXPECT_TRUE(status["data"].is_string());
}

TEST_F(OperatorServerTest, ListsReports) {
  send(adAttempt({{"network", "Sunrise"}}));
  send(adAttempt({{"network", "Meteor"}, {"fill", false}}));
  send("no JSON");

  EXPECT_THAT(idsOf(get("/api/reports")), ElementsAre(1, 2, 3));
  EXPECT_THAT(idsOf(get("/api/reports?order=desc&limit=2")), ElementsAre(3, 2));
  EXPECT_THAT(idsOf(get("/api/reports?after=1")), ElementsAre(2, 3));
  EXPECT_THAT(idsOf(get("/api/reports?before=2")), ElementsAre(1));
  EXPECT_THAT(idsOf(get("/api/reports?kind=ad-attempt")), ElementsAre(1, 2));
  EXPECT_THAT(idsOf(get("/api/reports?verdict=invalid")), ElementsAre(3));
  EXPECT_THAT(idsOf(get("/api/reports?text=Meteor")), ElementsAre(2));
  EXPECT_THAT(idsOf(get("/api/reports?key.network=Meteor")), ElementsAre(2));
  EXPECT_THAT(idsOf(get("/api/reports?key.fill=true")), ElementsAre(1));
  EXPECT_THAT(idsOf(get("/api/reports?user=nobody")), ElementsAre());
  EXPECT_EQ(3, get("/api/reports?limit=1")["total"]);
  EXPECT_EQ(true, get("/api/reports?limit=1")["more"]);
}

TEST_F(OperatorServerTest, ExplainsWhatIsWrongWithAQuery) {
  EXPECT_EQ("\"limit\" must be a whole number from 1 to 1000",
            get("/api/reports?limit=1001", 400)["error"]);
  EXPECT_THAT(get("/api/reports?after=-1", 400)["error"], HasSubstr("\"after\""));
  EXPECT_THAT(get("/api/reports?before=1x", 400)["error"], HasSubstr("\"before\""));
  EXPECT_EQ("\"other\" is no kind of report", get("/api/reports?kind=other", 400)["error"]);
  EXPECT_THAT(get("/api/reports?verdict=good", 400)["error"], HasSubstr("no verdict"));
  EXPECT_EQ("\"order\" must be asc or desc", get("/api/reports?order=up", 400)["error"]);
  EXPECT_EQ("no such parameter: limits", get("/api/reports?limits=3", 400)["error"]);
  EXPECT_THAT(get("/api/timeline?limit=0", 400)["error"], HasSubstr("\"limit\""));
  EXPECT_EQ("\"format\" must be jsonl or csv", get("/api/export?format=xml", 400)["error"]);
}

TEST_F(OperatorServerTest, ShowsOneReport) {
  send(adAttempt());

  EXPECT_EQ("Sunrise", get("/api/reports/1")["body"]["network"]);
  EXPECT_EQ("there is no report 2", get("/api/reports/2", 404)["error"]);
}

TEST_F(OperatorServerTest, ForgetsReports) {
  send(adAttempt());

  remove("/api/reports", 204);

  EXPECT_EQ(0, get("/api/reports")["total"]);
}

TEST_F(OperatorServerTest, WaitsUntilEnoughReportsAreHere) {
  send(adAttempt({{"network", "Meteor"}}));
  auto waiting = std::async(std::launch::async, [this] {
    return post("/api/wait", {{"count", 2},
                              {"kind", "ad-attempt"},
                              {"match", {{"network", "Meteor"}}},
                              {"timeout", 60}});
  });

  send(adAttempt());
  send(R"({"network":"Meteor"})");
  send(adAttempt({{"network", "Meteor"}}));

  const json result = waiting.get();
  EXPECT_EQ(true, result["satisfied"]);
  EXPECT_THAT(idsOf(result), ElementsAre(1, 4));
}

TEST_F(OperatorServerTest, WaitsForMoreThanItLists) {
  const auto accepted = [](const ReportRow&, const json&) { return Answer(); };
  const std::string body = "{" + std::string(1024 * 1024, ' ') + "}";
  for (int i = 0; i < 17; ++i) collector_.parts().store.add(body, accepted);

  const json result = post("/api/wait", {{"count", 17}, {"timeout", 0}});

  EXPECT_EQ(true, result["satisfied"]);
  EXPECT_THAT(idsOf(result), SizeIs(16));
}

TEST_F(OperatorServerTest, WaitsNoLongerThanAskedTo) {
  send(adAttempt());
  const auto begin = std::chrono::steady_clock::now();

  const json result = post("/api/wait", {{"count", 2}, {"timeout", 0.1}}, 408);

  EXPECT_LE(std::chrono::milliseconds(100), std::chrono::steady_clock::now() - begin);
  EXPECT_EQ(false, result["satisfied"]);
  EXPECT_THAT(idsOf(result), ElementsAre(1));
  EXPECT_THAT(idsOf(post("/api/wait", {{"after", 1}, {"timeout", 0}}, 408)), ElementsAre());
}

TEST_F(OperatorServerTest, ExplainsWhatIsWrongWithAWait) {
  EXPECT_EQ("\"timeout\" must be a number from 0 to 60",
            post("/api/wait", {{"timeout", 61}}, 400)["error"]);
  EXPECT_EQ("\"count\" must be a number from 1 to 1000",
            post("/api/wait", {{"count", 0}}, 400)["error"]);
  EXPECT_EQ("\"7\" is no kind of report", post("/api/wait", {{"kind", "7"}}, 400)["error"]);
  EXPECT_EQ("\"match\" must be a JSON object", post("/api/wait", {{"match", 7}}, 400)["error"]);
  EXPECT_THAT(post("/api/wait", {{"seconds", 7}}, 400)["error"], HasSubstr("no \"seconds\""));
  EXPECT_EQ("the body is no JSON object", post("/api/wait", json::array(), 400)["error"]);
}

TEST_F(OperatorServerTest, AWaitEndsWithTheCollector) {
  std::promise<void> begun;
  auto waiting = std::async(std::launch::async, [&] {
    begun.set_value();
    return static_cast<bool>(collector_.page()->Post("/api/wait", R"({"timeout":60})", kJson));
  });
  begun.get_future().wait();

  EXPECT_GT(std::chrono::seconds(20), collector_.stop());

  waiting.get();
}

TEST_F(OperatorServerTest, CountsAndDrawsUp) {
  send(adAttempt());
  send(adAttempt({{"fill", false}}));

  EXPECT_EQ(2, get("/api/summary")["reports"]);
  EXPECT_EQ(
      json::array({{{"network", "Sunrise"}, {"adType", "banner"}, {"attempts", 2}, {"filled", 1}}}),
      get("/api/summary")["fill"]);
  EXPECT_THAT(get("/api/timeline")["installations"], SizeIs(1));
  EXPECT_EQ("06118A00-1C64-4C26-9BAA-B61A61D66420",
            get("/api/timeline?limit=1")["installations"][0]["user"]);
  EXPECT_THAT(get("/api/timeline?user=nobody")["installations"], SizeIs(0));
}

TEST_F(OperatorServerTest, CompressesNothing) {
  const auto page =
      collector_.page()->Get("/", httplib::Headers{{"Accept-Encoding", "gzip, deflate, br"}});

  ASSERT_TRUE(page);
  EXPECT_FALSE(page->has_header("Content-Encoding"));
}

TEST_F(OperatorServerTest, ExportsAllReports) {
  send(adAttempt());
  send(adAttempt());

  const auto lines = collector_.page()->Get("/api/export");
  const auto table = collector_.page()->Get("/api/export?format=csv");

  ASSERT_TRUE(lines && table);
  EXPECT_EQ(2, std::ranges::count(lines->body, '\n'));
  EXPECT_EQ("application/x-ndjson", lines->get_header_value("Content-Type"));
  EXPECT_THAT(table->get_header_value("Content-Type"), StartsWith("text/csv"));
  EXPECT_THAT(table->body, StartsWith("id,"));
}

TEST_F(OperatorServerTest, SwitchesFaults) {
  EXPECT_EQ(json::array(), get("/api/faults")["faults"]);

  const json fault = post("/api/faults", {{"effect", "temporary"}, {"times", 3}}, 201);
  EXPECT_EQ(json({{"id", 1},
                  {"effect", "temporary"},
                  {"status", 200},
                  {"times", 3},
                  {"left", 3},
                  {"hits", 0}}),
            fault);
  send(adAttempt());
  EXPECT_EQ(2, get("/api/faults")["faults"][0]["left"]);

  remove("/api/faults/1", 204);
  EXPECT_EQ("there is no fault 1", remove("/api/faults/1", 404)["error"]);
  remove("/api/faults/99999999999", 404);
  post("/api/faults", {{"effect", "empty"}}, 201);
  remove("/api/faults", 204);
  EXPECT_EQ(json::array(), get("/api/faults")["faults"]);
}

TEST_F(OperatorServerTest, RefusesFaultsThatCannotBe) {
  EXPECT_THAT(post("/api/faults", {{"effect", "explode"}}, 400)["error"],
              HasSubstr("\"explode\" is no effect"));
  EXPECT_THAT(post("/api/faults", {{"effect", "cut-before"}, {"types", {"config"}}}, 400)["error"],
              HasSubstr("--separate-ports"));
}

TEST_F(OperatorServerTest, HandsSettingsOut) {
  const json values = {{"ConfigSerializationKeyConfigUpdateInterval", -1}};
  EXPECT_EQ("none", get("/api/settings")["source"]);

  const json set = put("/api/settings", {{"values", values}});

  EXPECT_EQ("api", set["source"]);
  EXPECT_EQ("warning", set["lint"][0]["severity"]);
  EXPECT_EQ(values.dump(), collector_.answerTo("/config", "{}"));
  EXPECT_EQ(set["lint"], post("/api/settings/lint", {{"values", values}})["lint"]);
  EXPECT_EQ("none", remove("/api/settings", 200)["source"]);
  EXPECT_EQ("{}", collector_.answerTo("/config", "{}"));
}

TEST_F(OperatorServerTest, RefusesSettingsThatAreNoObject) {
  const char* const complaint = "the body must be {\"values\":{...}}";

  EXPECT_EQ(complaint, put("/api/settings", {{"values", 7}}, 400)["error"]);
  EXPECT_EQ(complaint, put("/api/settings", json::object(), 400)["error"]);
  EXPECT_EQ(complaint, post("/api/settings/lint", json::object(), 400)["error"]);
  const json large = {{"values", {{"key", std::string(65536, 'a')}}}};
  EXPECT_EQ("\"values\" may have 64 KiB", put("/api/settings", large, 400)["error"]);
}

TEST_F(OperatorServerTest, AnswersUnderItsOwnHostAlone) {
  const std::string port = ":" + std::to_string(collector_.pagePort());

  EXPECT_EQ(200, statusOfGet({{"Host", "localhost" + port}}));
  EXPECT_EQ(200, statusOfGet({{"Host", "127.0.0.1"}}));
  EXPECT_EQ(200, statusOfGet({{"Host", "[::1]" + port}}));
  EXPECT_EQ(403, statusOfGet({{"Host", "rebound.example" + port}}));
  EXPECT_EQ(403, statusOfGet({{"Host", "localhost.example"}}));
  EXPECT_EQ(403, statusOfGet({{"Host", "10.0.0.1"}}));
  EXPECT_EQ(403, statusOfGet({{"Host", "rebound.example"}}, "/"));
}

TEST_F(OperatorServerTest, TakesNothingFromPagesOfOthers) {
  const std::string own = "http://127.0.0.1:" + std::to_string(collector_.pagePort());
  const std::string body = R"({"values":{}})";

  EXPECT_EQ(200, statusOfPost({{"Origin", own}}, body, kJson));
  EXPECT_EQ(200, statusOfPost({}, body, "Application/JSON; charset=utf-8"));
  EXPECT_EQ(403, statusOfPost({{"Origin", "http://elsewhere.example"}}, body, kJson));
  EXPECT_EQ(403, statusOfPost({{"Origin", "http://127.0.0.1:1"}}, body, kJson));
  EXPECT_EQ(403, statusOfPost({{"Origin", "null"}}, body, kJson));
  EXPECT_EQ(403, statusOfPost({}, body, "text/plain"));
  EXPECT_EQ(403, statusOfPost({}, body, "application/x-www-form-urlencoded"));
}

TEST_F(OperatorServerTest, HasNothingRemovedByPagesOfOthers) {
  send(adAttempt());

  const auto result =
      collector_.page()->Delete("/api/reports", {{"Origin", "http://elsewhere.example"}});

  ASSERT_TRUE(result);
  EXPECT_EQ(403, result->status);
  EXPECT_EQ(1, get("/api/reports")["total"]);
}

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

TEST_F(OperatorServerTest, BoundsWhatItReads) {
  const std::string tooLarge(1024 * 1024 + 1, ' ');

  EXPECT_EQ(413, statusOfPost({}, tooLarge, kJson));
  EXPECT_EQ(411, statusOfPost({{"Transfer-Encoding", "chunked"}}, "2\r\n{}\r\n0\r\n\r\n", kJson));
  EXPECT_EQ(415, statusOfPost({{"Content-Encoding", "gzip"}}, "{}", kJson));
  EXPECT_EQ(400, statusOfPost({}, std::string(100000, '['), kJson));
}

TEST_F(OperatorServerTest, TakesARequestWithoutLengthForOneWithoutBody) {
  const OwnedSocket socket =
      connectTo(collector_.pagePort(), "DELETE /api/faults HTTP/1.1\r\nHost: localhost\r\n\r\n");
  char status[13] = "";

  EXPECT_EQ(12, ::recv(socket.get(), status, 12, MSG_WAITALL));

  EXPECT_STREQ("HTTP/1.1 204", status);
}

TEST_F(OperatorServerTest, BearsALongPath) {
  EXPECT_EQ(404, statusOfGet({}, "/" + std::string(8000, 'a')));
  EXPECT_EQ(404, statusOfGet({}, "/api/" + std::string(8000, 'a')));
  EXPECT_EQ(404, statusOfGet({}, "/api/reports/" + std::string(8000, '1')));
}

TEST_F(OperatorServerTest, TellsUnknownPagesFromUnknownMethods) {
  EXPECT_EQ("there is no such page", get("/api/other", 404)["error"]);
  EXPECT_EQ("there is no such page", get("/other.html", 404)["error"]);
  EXPECT_EQ("there is no such page", get("/../openapi.yaml", 404)["error"]);
  EXPECT_EQ("this page has no such method", post("/api/status", json::object(), 405)["error"]);
  EXPECT_EQ("this page has no such method", remove("/api/reports/1", 405)["error"]);
}

TEST_F(OperatorServerTest, ServesThePage) {
  const auto page = collector_.page()->Get("/");

  ASSERT_TRUE(page);
  EXPECT_EQ(200, page->status);
  EXPECT_EQ("text/html; charset=utf-8", page->get_header_value("Content-Type"));
  EXPECT_EQ("nosniff", page->get_header_value("X-Content-Type-Options"));
  EXPECT_THAT(page->get_header_value("Content-Security-Policy"), StartsWith("default-src 'none';"));
  EXPECT_EQ(findEmbeddedFile("page/index.html")->content, page->body);
  EXPECT_EQ(304, statusOfGet({{"If-None-Match", page->get_header_value("ETag")}}, "/"));
  EXPECT_EQ(200, statusOfGet({{"If-None-Match", "\"other\""}}, "/"));
}

TEST_F(OperatorServerTest, ServesTheSchemas) {
  EXPECT_EQ("object", get("/schema/ad-attempt.schema.json")["type"]);
}

// The paths and methods of the description, by its layout: a path is indented by two, a method by
// four.
std::set<std::string> describedRoutes(const std::string& description) {
  std::istringstream lines(description);
  std::set<std::string> routes;
  std::string path;
  for (std::string line; std::getline(lines, line);) {
    const bool isKey = line.ends_with(':');
    if (isKey && line.starts_with("  /")) path = line.substr(2, line.size() - 3);
    for (const std::string method : {"get", "post", "put", "delete"}) {
      if (line == "    " + method + ":") routes.insert(method + " " + path);
    }
  }
  return routes;
}

TEST_F(OperatorServerTest, IsDescribedCompletely) {
  std::set<std::string> routes;
  for (const OperatorServer::Route& route : collector_.operators().routes()) {
    std::string method = route.method;
    std::ranges::transform(method, method.begin(),
                           [](char c) { return static_cast<char>(c | 32); });
    routes.insert(method + " " + route.path);
  }

  const auto description = collector_.page()->Get("/api/openapi.yaml");

  ASSERT_TRUE(description);
  EXPECT_EQ(routes, describedRoutes(description->body));
}

}  // namespace
}  // namespace zln::collector
