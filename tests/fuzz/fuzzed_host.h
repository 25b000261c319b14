#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "platform/value.h"
#include "tests/support/host_fixture.h"

namespace zln::fuzz {

inline constexpr char kReportsFile[] = "/support/com.zelnor.sdk/reporting/reports.json";
inline constexpr char kSettingsFile[] = "/support/com.zelnor.sdk/data/config.dat";

// The process of one input, on a fresh machine of fakes. When it goes it checks what must hold
// after anything: the log is text, all that was sent is JSON, and the report file is a whole list
// of reports.
class FuzzedHost : public HostTest {
 public:
  explicit FuzzedHost(std::uint64_t logLevel);
  ~FuzzedHost() override;

  using HostTest::env;

  // As the game does at its start.
  void start();
  // Leaves for the background, where the session waits however long the settings let it, but no
  // longer than the system does, and returns much later.
  void leaveAndReturn();
  // Ends the process and begins the next one on the same installation.
  void restart();

  // A reply, or a failure of the transport, to a request of this process that has had none.
  void reply(std::size_t request, std::string body);
  void fail(std::size_t request, int urlErrorCode);
  // The first request that waits for an answer.
  std::optional<std::size_t> firstOutstanding() const;
  // Calls `answer`, which answers it, with each request that waits and with what comes of it, until
  // none does. False when that takes more than `most` answers.
  bool answerAll(std::size_t most, const std::function<void(std::size_t request)>& answer);
  // Has the server take everything.
  bool deliverAll(std::size_t most);

  // The elements of the report file. Absent when there is no file or no list in it.
  std::optional<Array> storedReports() const;

 private:
  void TestBody() override {}

  void checkLog() const;
  void checkRequests() const;
  void checkReportFile() const;

  std::uint64_t logLevel_;
  // Requests below this one are of earlier processes.
  std::size_t firstRequest_ = 0;
  std::set<std::size_t> answered_;
};

// Every line of the log is made for some inputs only: with it an input takes several times as long.
inline std::uint64_t logLevelFor(std::size_t size) { return size % 8 == 0 ? 5 : 1; }

// Of the same kind and equal, where a NaN equals a NaN.
bool isSameNumber(const Number& a, const Number& b);
// Equal, whatever the order of keys, by that rule for numbers.
bool isSame(const Value& a, const Value& b,
            bool (*sameNumber)(const Number& a, const Number& b) = &isSameNumber);

// Whether a report of a file would be loaded.
bool isReport(const Value& element);

}  // namespace zln::fuzz
