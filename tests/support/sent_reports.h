#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/value.h"
#include "testkit/fake_files.h"
#include "testkit/fake_http.h"

namespace zln {

// A report that went out: where to and with what body.
struct SentReport {
  std::string url;
  Dictionary body;
};

// The reports among the requests, in the order in which they were sent.
std::vector<SentReport> sentReports(const FakeHttp& http);
// What stands under "type" in each of them.
std::vector<std::string> sentTypes(const FakeHttp& http);

// The reports in the file of those that are owed; none when there is no file.
std::vector<Dictionary> storedReports(const FakeFiles& files);

// A text or a number of a report. One that is missing fails the test.
std::string textOf(const Dictionary& report, std::string_view key);
double numberOf(const Dictionary& report, std::string_view key);

// The keys of a report, sorted.
std::vector<std::string> keysOf(const Dictionary& report);

}  // namespace zln
