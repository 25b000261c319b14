#include "collector/operator_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <future>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "collector/embedded_files.h"
#include "tests/collector/raw_client.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class OperatorServerTest : public testing::Test {
 protected:
  HttpAnswer ask(const HttpRequest& request) const { return collector_.askPage(request); }

  JsonText get(const std::string& path, int status = 200) const {
    return answer("GET", path, "", status);
  }
  JsonText post(const std::string& path, const std::string& body, int status = 200) const {
    return answer("POST", path, body, status);
  }
  JsonText put(const std::string& path, const std::string& body, int status = 200) const {
    return answer("PUT", path, body, status);
  }
  JsonText remove(const std::string& path, int status) const {
    return answer("DELETE", path, "", status);
  }

  // The identifiers of the reports that a query finds.
  std::vector<std::string> idsOf(const std::string& query) const {
    return get("/api/reports" + query).each("reports", "id");
  }

  int statusOfPost(const Headers& headers, const std::string& body,
                   const std::string& type = "application/json") const {
    return ask({"POST", "/api/settings/lint", body, type, headers}).status;
  }

  int statusOfGet(const Headers& headers, const std::string& path = "/api/status") const {
    return ask({.path = path, .headers = headers}).status;
  }

  void send(const std::string& body) const { collector_.answerTo("/session", body); }

  RunningCollector collector_;

 private:
  JsonText answer(const std::string& method, const std::string& path, const std::string& body,
                  int status) const {
    const HttpAnswer answer = ask({.method = method, .path = path, .body = body});
    EXPECT_EQ(status, answer.status) << path << ": " << answer.body;
    return answer.json();
  }
};

TEST_F(OperatorServerTest, TellsWhatRuns) {
  send(adAttempt());

  const JsonText status = get("/api/status");

  const std::string gamePort = std::to_string(collector_.gamePort());
  EXPECT_EQ(gamePort, status["ports/session-first"]);
  EXPECT_EQ(gamePort, status["ports/config"]);
  EXPECT_EQ(std::to_string(collector_.pagePort()), status["page"]);
  EXPECT_EQ(collector_.certificates().authority, status["authority"]);
  EXPECT_EQ(collector_.database().parent_path(), status["data"]);
  EXPECT_EQ("false", status["rejectInvalid"]);
  EXPECT_EQ("1", status["reports"]);
  EXPECT_LT(1.7e9, std::stod(status["started"]));
  EXPECT_THAT(status["version"], HasSubstr("."));
}

TEST_F(OperatorServerTest, ListsReports) {
  send(adAttempt(R"({"network":"Sunrise"})"));
  send(adAttempt(R"({"network":"Meteor","fill":false})"));
  send("no JSON");

  EXPECT_THAT(idsOf(""), ElementsAre("1", "2", "3"));
  EXPECT_THAT(idsOf("?order=desc&limit=2"), ElementsAre("3", "2"));
  EXPECT_THAT(idsOf("?after=1"), ElementsAre("2", "3"));
  EXPECT_THAT(idsOf("?before=2"), ElementsAre("1"));
  EXPECT_THAT(idsOf("?kind=ad-attempt"), ElementsAre("1", "2"));
  EXPECT_THAT(idsOf("?verdict=invalid"), ElementsAre("3"));
  EXPECT_THAT(idsOf("?text=Meteor"), ElementsAre("2"));
  EXPECT_THAT(idsOf("?key.network=Meteor"), ElementsAre("2"));
  EXPECT_THAT(idsOf("?key.fill=true"), ElementsAre("1"));
  EXPECT_THAT(idsOf("?user=nobody"), IsEmpty());
  EXPECT_EQ("3", get("/api/reports?limit=1")["total"]);
  EXPECT_EQ("true", get("/api/reports?limit=1")["more"]);
}

TEST_F(OperatorServerTest, ExplainsWhatIsWrongWithAQuery) {
  const struct {
    std::string query;
    std::string complaint;
  } kCases[] = {
      {"reports?limit=1001", R"("limit" must be a whole number from 1 to 1000)"},
      {"reports?after=-1", R"("after" must be a whole number from 0 to 9007199254740992)"},
      {"reports?before=1x", R"("before" must be a whole number from 0 to 9007199254740992)"},
      {"reports?kind=other", R"("other" is no kind of report)"},
      {"reports?verdict=good", R"("good" is no verdict: valid, duplicate, suspect, invalid)"},
      {"reports?order=up", R"("order" must be asc or desc)"},
      {"reports?limits=3", "no such parameter: limits"},
      {"timeline?limit=0", R"("limit" must be a whole number from 1 to 1000)"},
      {"export?format=xml", R"("format" must be jsonl or csv)"},
  };
  for (const auto& [query, complaint] : kCases) {
    EXPECT_EQ(complaint, get("/api/" + query, 400)["error"]);
  }
}

TEST_F(OperatorServerTest, ShowsOneReport) {
  send(adAttempt());

  EXPECT_EQ("Sunrise", get("/api/reports/1")["body/network"]);
  EXPECT_EQ("there is no report 2", get("/api/reports/2", 404)["error"]);
}

TEST_F(OperatorServerTest, ForgetsReports) {
  send(adAttempt());

  remove("/api/reports", 204);

  EXPECT_EQ("0", get("/api/reports")["total"]);
}

TEST_F(OperatorServerTest, WaitsUntilEnoughReportsAreHere) {
  send(adAttempt(R"({"network":"Meteor"})"));
  auto waiting = std::async(std::launch::async, [this] {
    return post("/api/wait",
                R"({"count":2,"kind":"ad-attempt","match":{"network":"Meteor"},"timeout":60})");
  });

  send(adAttempt());
  send(R"({"network":"Meteor"})");
  send(adAttempt(R"({"network":"Meteor"})"));

  const JsonText result = waiting.get();
  EXPECT_EQ("true", result["satisfied"]);
  EXPECT_THAT(result.each("reports", "id"), ElementsAre("1", "4"));
}

TEST_F(OperatorServerTest, WaitsForMoreThanItLists) {
  const std::string body = "{" + std::string(1024 * 1024 - 2, ' ') + "}";
  for (int i = 0; i < 17; ++i) collector_.desk().takeReport(body);

  const JsonText result = post("/api/wait", R"({"count":17,"timeout":0})");

  EXPECT_EQ("true", result["satisfied"]);
  EXPECT_THAT(result.each("reports", "id"), SizeIs(16));
}

TEST_F(OperatorServerTest, WaitsNoLongerThanAskedTo) {
  send(adAttempt());
  const auto begin = std::chrono::steady_clock::now();

  const JsonText result = post("/api/wait", R"({"count":2,"timeout":0.1})", 408);

  EXPECT_LE(std::chrono::milliseconds(100), std::chrono::steady_clock::now() - begin);
  EXPECT_EQ("false", result["satisfied"]);
  EXPECT_THAT(result.each("reports", "id"), ElementsAre("1"));
  EXPECT_EQ("[]", post("/api/wait", R"({"after":1,"timeout":0})", 408)["reports"]);
}

TEST_F(OperatorServerTest, ExplainsWhatIsWrongWithAWait) {
  const struct {
    const char* body;
    std::string complaint;
  } kCases[] = {
      {R"({"timeout":61})", R"("timeout" must be a number from 0 to 60)"},
      {R"({"count":0})", R"("count" must be a number from 1 to 1000)"},
      {R"({"kind":"7"})", R"("7" is no kind of report)"},
      {R"({"match":7})", R"("match" must be a JSON object)"},
      {R"({"seconds":7})",
       R"(a wait has "count", "after", "kind", "match" and "timeout", no "seconds")"},
      {"[]", "the body is no JSON object"},
  };
  for (const auto& [body, complaint] : kCases) {
    EXPECT_EQ(complaint, post("/api/wait", body, 400)["error"]);
  }
}

TEST_F(OperatorServerTest, AWaitEndsWithTheCollector) {
  const OwnedSocket waiting =
      connectTo(collector_.pagePort(),
                "POST /api/wait HTTP/1.1\r\nHost: localhost\r\nContent-Length: 14\r\n"
                "Content-Type: application/json\r\n\r\n{\"timeout\":60}");
  get("/api/status");  // Is accepted after the wait.

  EXPECT_GT(std::chrono::seconds(20), collector_.stop());
}

TEST_F(OperatorServerTest, CountsAndDrawsUp) {
  send(adAttempt());
  send(adAttempt(R"({"fill":false})"));

  EXPECT_EQ("2", get("/api/summary")["reports"]);
  EXPECT_EQ(R"([{"adType":"banner","attempts":2,"filled":1,"network":"Sunrise"}])",
            get("/api/summary")["fill"]);
  EXPECT_THAT(get("/api/timeline").each("installations", "user"), SizeIs(1));
  EXPECT_EQ("06118A00-1C64-4C26-9BAA-B61A61D66420",
            get("/api/timeline?limit=1")["installations/0/user"]);
  EXPECT_EQ("[]", get("/api/timeline?user=nobody")["installations"]);
}

TEST_F(OperatorServerTest, CompressesNothing) {
  const HttpAnswer page = ask({.path = "/", .headers = {{"Accept-Encoding", "gzip, deflate, br"}}});

  EXPECT_EQ(200, page.status);
  EXPECT_FALSE(page.headers.contains("Content-Encoding"));
}

TEST_F(OperatorServerTest, ExportsAllReports) {
  send(adAttempt());
  send(adAttempt());

  const HttpAnswer lines = ask({.path = "/api/export"});
  const HttpAnswer table = ask({.path = "/api/export?format=csv"});

  EXPECT_EQ(2, std::ranges::count(lines.body, '\n'));
  EXPECT_EQ("application/x-ndjson", lines.header("Content-Type"));
  EXPECT_THAT(table.header("Content-Type"), StartsWith("text/csv"));
  EXPECT_THAT(table.body, StartsWith("id,"));
}

TEST_F(OperatorServerTest, SwitchesFaults) {
  EXPECT_EQ("[]", get("/api/faults")["faults"]);

  EXPECT_EQ(R"({"effect":"temporary","hits":0,"id":1,"left":3,"status":200,"times":3})",
            post("/api/faults", R"({"effect":"temporary","times":3})", 201)[""]);
  send(adAttempt());
  EXPECT_EQ("2", get("/api/faults")["faults/0/left"]);

  remove("/api/faults/1", 204);
  EXPECT_EQ("there is no fault 1", remove("/api/faults/1", 404)["error"]);
  remove("/api/faults/99999999999", 404);
  post("/api/faults", R"({"effect":"empty"})", 201);
  remove("/api/faults", 204);
  EXPECT_EQ("[]", get("/api/faults")["faults"]);
}

TEST_F(OperatorServerTest, RefusesFaultsThatCannotBe) {
  EXPECT_THAT(post("/api/faults", R"({"effect":"explode"})", 400)["error"],
              HasSubstr("\"explode\" is no effect"));
  EXPECT_THAT(post("/api/faults", R"({"effect":"cut-before","types":["config"]})", 400)["error"],
              HasSubstr("--separate-ports"));
}

TEST_F(OperatorServerTest, HandsSettingsOut) {
  const std::string values = R"({"ConfigSerializationKeyConfigUpdateInterval":-1})";
  const std::string body = R"({"values":)" + values + "}";
  EXPECT_EQ("none", get("/api/settings")["source"]);

  const JsonText set = put("/api/settings", body);

  EXPECT_EQ("api", set["source"]);
  EXPECT_EQ("warning", set["lint/0/severity"]);
  EXPECT_EQ(values, collector_.answerTo("/config", "{}"));
  EXPECT_EQ(set["lint"], post("/api/settings/lint", body)["lint"]);
  EXPECT_EQ("none", remove("/api/settings", 200)["source"]);
  EXPECT_EQ("{}", collector_.answerTo("/config", "{}"));
}

TEST_F(OperatorServerTest, RefusesSettingsThatAreNoObject) {
  const std::string complaint = R"(the body must be {"values":{...}})";
  const std::string large = R"({"values":{"key":")" + std::string(65536, 'a') + R"("}})";

  EXPECT_EQ(complaint, put("/api/settings", R"({"values":7})", 400)["error"]);
  EXPECT_EQ(complaint, put("/api/settings", "{}", 400)["error"]);
  EXPECT_EQ(complaint, post("/api/settings/lint", "{}", 400)["error"]);
  EXPECT_EQ(R"("values" may have 64 KiB)", put("/api/settings", large, 400)["error"]);
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

  EXPECT_EQ(200, statusOfPost({{"Origin", own}}, body));
  EXPECT_EQ(200, statusOfPost({}, body, "Application/JSON; charset=utf-8"));
  EXPECT_EQ(403, statusOfPost({{"Origin", "http://elsewhere.example"}}, body));
  EXPECT_EQ(403, statusOfPost({{"Origin", "http://127.0.0.1:1"}}, body));
  EXPECT_EQ(403, statusOfPost({{"Origin", "null"}}, body));
  EXPECT_EQ(403, statusOfPost({}, body, "text/plain"));
  EXPECT_EQ(403, statusOfPost({}, body, "application/x-www-form-urlencoded"));
}

TEST_F(OperatorServerTest, HasNothingRemovedByPagesOfOthers) {
  send(adAttempt());

  const HttpAnswer answer = ask({.method = "DELETE",
                                 .path = "/api/reports",
                                 .headers = {{"Origin", "http://elsewhere.example"}}});

  EXPECT_EQ(403, answer.status);
  EXPECT_EQ("1", get("/api/reports")["total"]);
}

TEST_F(OperatorServerTest, BoundsWhatItReads) {
  const std::string tooLarge(1024 * 1024 + 1, ' ');

  EXPECT_EQ(413, statusOfPost({}, tooLarge));
  EXPECT_EQ(411, statusOfPost({{"Transfer-Encoding", "chunked"}}, "2\r\n{}\r\n0\r\n\r\n"));
  EXPECT_EQ(415, statusOfPost({{"Content-Encoding", "gzip"}}, "{}"));
  EXPECT_EQ(400, statusOfPost({}, std::string(100000, '[')));
}

TEST_F(OperatorServerTest, TakesARequestWithoutLengthForOneWithoutBody) {
  const OwnedSocket socket =
      connectTo(collector_.pagePort(), "DELETE /api/faults HTTP/1.1\r\nHost: localhost\r\n\r\n");
  char status[13] = "";

  EXPECT_EQ(12, ::recv(socket.get(), status, 12, MSG_WAITALL));

  EXPECT_STREQ("HTTP/1.1 204", status);
}

TEST_F(OperatorServerTest, BearsALongPath) {
  for (const std::string path : {"/", "/api/"}) {
    EXPECT_EQ(404, statusOfGet({}, path + std::string(8000, 'a')));
  }
  EXPECT_EQ(404, statusOfGet({}, "/api/reports/" + std::string(8000, '1')));
}

TEST_F(OperatorServerTest, TellsUnknownPagesFromUnknownMethods) {
  const std::string noPage = "there is no such page";
  const std::string noMethod = "this page has no such method";

  EXPECT_EQ(noPage, get("/api/other", 404)["error"]);
  EXPECT_EQ(noPage, get("/other.html", 404)["error"]);
  EXPECT_EQ(noPage, get("/../openapi.yaml", 404)["error"]);
  EXPECT_EQ(noMethod, post("/api/status", "{}", 405)["error"]);
  EXPECT_EQ(noMethod, remove("/api/reports/1", 405)["error"]);
}

TEST_F(OperatorServerTest, ServesThePage) {
  const HttpAnswer page = ask({.path = "/"});

  EXPECT_EQ(200, page.status);
  EXPECT_EQ("text/html; charset=utf-8", page.header("Content-Type"));
  EXPECT_EQ("nosniff", page.header("X-Content-Type-Options"));
  EXPECT_THAT(page.header("Content-Security-Policy"), StartsWith("default-src 'none';"));
  EXPECT_EQ(findEmbeddedFile("page/index.html")->content, page.body);
  EXPECT_EQ(304, statusOfGet({{"If-None-Match", page.header("ETag")}}, "/"));
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
    for (char& letter : method) letter = static_cast<char>(std::tolower(letter));
    routes.insert(method + " " + route.path);
  }

  EXPECT_EQ(routes, describedRoutes(ask({.path = "/api/openapi.yaml"}).body));
}

}  // namespace
}  // namespace zln::collector
