#include "tests/support/host_fixture.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "tests/support/process_state_for_tests.h"

namespace zln {
namespace {

constexpr std::string_view kPrefix = "ZLN Session: ";
constexpr std::string_view kLoggedPrefix = "log: ZLN Session: ";

std::string withoutAddresses(std::string_view line) {
  std::string text;
  while (!line.empty()) {
    const std::size_t start = std::min(line.find("0x"), line.size());
    const std::size_t end = line.find_first_not_of("0123456789abcdef", start + 2);
    const bool isAddress = end != std::string_view::npos && line[end] == '>';
    text += line.substr(0, start);
    if (start == line.size()) break;
    text += isAddress ? "0x*" : "0x";
    line.remove_prefix(isAddress ? end : start + 2);
  }
  return text;
}

}  // namespace

HostTest::HostTest() { beginProcess(); }

HostTest::~HostTest() { endProcess(); }

void HostTest::TearDown() {
  EXPECT_EQ(std::vector<std::string>(), env.journal.dropHooks()) << "never happened";
}

void HostTest::restart() {
  endProcess();
  beginProcess();
}

void HostTest::setLevel(std::uint64_t level) { processState().currentLogLevel.set(level); }

std::vector<std::string> HostTest::newLines() {
  std::vector<std::string> lines;
  for (const std::string& line : log().lines()) {
    EXPECT_TRUE(line.starts_with(kPrefix)) << line;
    lines.push_back(withoutAddresses(line.substr(std::min(kPrefix.size(), line.size()))));
  }
  log().clear();
  return lines;
}

void HostTest::expectLines(std::initializer_list<std::string_view> expected, int line) {
  EXPECT_EQ(std::vector<std::string>(expected.begin(), expected.end()), newLines())
      << "expected in line " << line;
}

void HostTest::expectCalls(std::initializer_list<std::string_view> expected, int line) {
  std::vector<std::string> calls = env.journal.take();
  for (std::string& call : calls) {
    if (!call.starts_with(kLoggedPrefix)) continue;
    call = "log: " + withoutAddresses(std::string_view(call).substr(kLoggedPrefix.size()));
  }
  EXPECT_EQ(std::vector<std::string>(expected.begin(), expected.end()), calls)
      << "expected in line " << line;
}

void HostTest::whenLogged(const std::string& beginning, std::function<void()> act) {
  env.journal.when(std::string(kLoggedPrefix) + beginning, std::move(act));
}

void HostTest::beginProcess() {
  state_ = new ProcessState(env.environment());
  setProcessStateForTests(state_);
}

void HostTest::endProcess() {
  env.endProcess();
  // Still the current state while it is deleted: its objects log as they go.
  delete state_;
  setProcessStateForTests(nullptr);
  // What those objects posted as they went does not reach the next process.
  env.endProcess();
}

}  // namespace zln
