#include "tests/fuzz/fuzzed_host.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "platform/property_list.h"
#include "platform/utf8.h"
#include "reports/report_types.h"
#include "tests/fuzz/fuzz.h"

namespace zln::fuzz {
FuzzedHost::FuzzedHost(std::uint64_t logLevel) : logLevel_(logLevel) { setLevel(logLevel_); }

FuzzedHost::~FuzzedHost() {
  checkLog();
  checkRequests();
  checkReportFile();
}

void FuzzedHost::start() {
  ZLNInitializeReporting("engine-5");
  ZLNStartSessionReporting();
  env.dispatch.runAll();
}

void FuzzedHost::leaveAndReturn() {
  env.app.resignActive();
  env.backgroundTasks.remainingTime = 600;
  env.clock.at(100, [this] { env.backgroundTasks.remainingTime = 5; });
  env.app.enterBackground();
  env.dispatch.runAll();
  env.clock.advance(500);
  env.app.enterForeground();
}

void FuzzedHost::restart() {
  HostTest::restart();
  setLevel(logLevel_);
  firstRequest_ = env.http.requests().size();
}

void FuzzedHost::reply(std::size_t request, std::string body) {
  answered_.insert(request);
  env.http.reply(request, std::move(body));
}

void FuzzedHost::fail(std::size_t request, int urlErrorCode) {
  answered_.insert(request);
  env.http.fail(request, urlErrorCode);
}

std::optional<std::size_t> FuzzedHost::firstOutstanding() const {
  for (std::size_t request = firstRequest_; request < env.http.requests().size(); ++request) {
    if (!answered_.contains(request)) return request;
  }
  return std::nullopt;
}

bool FuzzedHost::answerAll(std::size_t most, const std::function<void(std::size_t)>& answer) {
  env.dispatch.runAll();
  for (std::size_t answers = 0; const auto request = firstOutstanding(); ++answers) {
    if (answers == most) return false;
    answer(*request);
    env.dispatch.runAll();
  }
  return true;
}

bool FuzzedHost::deliverAll(std::size_t most) {
  return answerAll(most, [this](std::size_t request) { reply(request, "{\"success\":true}"); });
}

std::optional<Array> FuzzedHost::storedReports() const {
  const auto bytes = env.files.contents(kReportsFile);
  const auto root = bytes ? property_list::read(*bytes) : std::nullopt;
  if (!root || root->array() == nullptr) return std::nullopt;
  return *root->array();
}

void FuzzedHost::checkLog() const {
  for (const std::string& line : env.log.lines()) {
    require(isValidUtf8(line), "every log line is UTF-8", line);
  }
}

void FuzzedHost::checkRequests() const {
  for (const HttpRequest& request : env.http.requests()) {
    require(nlohmann::json::parse(request.body, nullptr, false).is_object(),
            "every body is a JSON object", request.body);
  }
}

void FuzzedHost::checkReportFile() const {
  // Before its first write it may hold anything.
  if (env.files.writeCount(kReportsFile) == 0) return;
  const std::optional<Array> reports = storedReports();
  require(reports.has_value(), "the report file is a whole list",
          env.files.contents(kReportsFile).value_or("no file"));
  for (const Value& report : *reports) {
    require(isReport(report), "the report file holds only reports", report.description());
  }
}

bool isSameNumber(const Number& a, const Number& b) {
  if (a.kind() != b.kind()) return false;
  return a == b || (std::isnan(a.doubleValue()) && std::isnan(b.doubleValue()));
}

bool isSame(const Value& a, const Value& b, bool (*sameNumber)(const Number&, const Number&)) {
  const auto areSame = [=](const Value& x, const Value& y) { return isSame(x, y, sameNumber); };
  if (a.number() != nullptr && b.number() != nullptr) return sameNumber(*a.number(), *b.number());
  if (a.array() != nullptr && b.array() != nullptr) {
    return std::equal(a.array()->begin(), a.array()->end(), b.array()->begin(), b.array()->end(),
                      areSame);
  }
  if (a.dictionary() != nullptr && b.dictionary() != nullptr) {
    const auto ofA = a.dictionary()->sortedEntries();
    const auto ofB = b.dictionary()->sortedEntries();
    return std::equal(ofA.begin(), ofA.end(), ofB.begin(), ofB.end(), [&](auto* x, auto* y) {
      return x->first == y->first && areSame(x->second, y->second);
    });
  }
  return a == b;
}

bool isReport(const Value& element) {
  constexpr std::string_view kTypes[] = {kReportTypeSessionFirst, kReportTypeSessionStart,
                                         kReportTypeSessionStop, kReportTypeAdAttempt,
                                         kReportTypeAdZoneAttempt};
  const Dictionary* report = element.dictionary();
  const std::string* type = report == nullptr ? nullptr : report->findString("type");
  return type != nullptr &&
         std::find(std::begin(kTypes), std::end(kTypes), *type) != std::end(kTypes);
}

}  // namespace zln::fuzz
