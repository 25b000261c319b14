// The input is what a server says: one reply, or several with a byte 0x1E between them. Each is
// read as JSON, beside another reader; then a report and the settings get them as their replies,
// one after the other and round again. A reply that begins with a byte 0x15 stands for a request
// that failed with the transport's error of the number that follows.

#include <iconv.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "config/ZLNReportingConfig.h"
#include "platform/json.h"
#include "platform/property_list.h"
#include "platform/utf8.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/fuzzed_host.h"
#include "transport/ZLNErrors.h"

namespace zln::fuzz {
namespace {

// The other reader. It takes strict JSON in UTF-8 and nothing else, so what the library takes
// beyond that is first brought into this form: wide encodings and trailing commas. What the library
// refuses beyond that is named in isRefusedByRule().

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The mark or the place of zeros that tells an encoding, and its name; a zero stands for itself, an
// "x" for anything else, and a mark is none of the text.
struct Encoding {
  std::string_view beginning;
  bool isMark;
  const char* name;
};

Encoding encodingOf(std::string_view bytes) {
  using namespace std::string_view_literals;
  constexpr Encoding kEncodings[] = {
      {"\xEF\xBB\xBF"sv, true, "UTF-8"},    {"\xFF\xFE\0\0"sv, true, "UTF-32LE"},
      {"\0\0\xFE\xFF"sv, true, "UTF-32BE"}, {"\xFF\xFE"sv, true, "UTF-16LE"},
      {"\xFE\xFF"sv, true, "UTF-16BE"},     {"\0\0\0x"sv, false, "UTF-32BE"},
      {"x\0\0\0"sv, false, "UTF-32LE"},     {"\0x\0x"sv, false, "UTF-16BE"},
      {"x\0x\0"sv, false, "UTF-16LE"},
  };
  for (const Encoding& encoding : kEncodings) {
    const std::string_view start = bytes.substr(0, encoding.beginning.size());
    const auto isAlike = [](char found, char place) { return (found == 0) == (place == 0); };
    if (encoding.isMark ? start == encoding.beginning
                        : std::equal(start.begin(), start.end(), encoding.beginning.begin(),
                                     encoding.beginning.end(), isAlike)) {
      return encoding;
    }
  }
  return {"", true, "UTF-8"};
}

// Absent when it is not well formed; of UTF-8 that is left to the other reader.
std::optional<std::string> inUtf8(std::string_view bytes) {
  const Encoding encoding = encodingOf(bytes);
  std::string rest(bytes.substr(encoding.isMark ? encoding.beginning.size() : 0));
  if (encoding.name == std::string_view("UTF-8")) return rest;
  std::string text(2 * rest.size(), '\0');
  char* from = rest.data();
  char* to = text.data();
  std::size_t left = rest.size();
  std::size_t room = text.size();
  const iconv_t converter = iconv_open("UTF-8", encoding.name);
  require(converter != reinterpret_cast<iconv_t>(-1), "the system converts", encoding.name);
  const bool isWellFormed = iconv(converter, &from, &left, &to, &room) != std::size_t(-1);
  iconv_close(converter);
  text.resize(text.size() - room);
  return isWellFormed ? std::optional(text) : std::nullopt;
}

// The places outside of strings that are not blank.
std::vector<std::size_t> structureOf(std::string_view text) {
  std::vector<std::size_t> places;
  bool isInString = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (isInString && c == '\\') {
      ++at;
    } else if (c == '"') {
      isInString = !isInString;
      places.push_back(at);
    } else if (!isInString && !isBlank(c)) {
      places.push_back(at);
    }
  }
  return places;
}

std::string withoutTrailingCommas(std::string text) {
  const std::vector<std::size_t> places = structureOf(text);
  for (std::size_t at = 2; at < places.size(); ++at) {
    const char before = text[places[at - 2]];
    const bool isFirst = before == '[' || before == '{' || before == ',';
    const char c = text[places[at]];
    if (text[places[at - 1]] == ',' && (c == ']' || c == '}') && !isFirst)
      text[places[at - 1]] = ' ';
  }
  return text;
}

// Builds what the library would: of repeated keys the first counts, an integer beyond 64 bits with
// sign is a real.
class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return add(Null{}); }
  bool boolean(bool value) override { return add(Number::boolean(value)); }
  bool number_integer(std::int64_t value) override { return add(Number::int64(value)); }
  bool number_unsigned(std::uint64_t value) override {
    const auto narrow = static_cast<std::int64_t>(value);
    return add(narrow >= 0 ? Number::int64(narrow) : Number::float64(static_cast<double>(value)));
  }
  bool number_float(double value, const std::string& text) override {
    // No digit but zeros before the exponent, or before the end where there is none.
    const bool isZeroText = text.find_first_of("123456789") >= text.find_first_of("eE");
    const bool isTiny = value == 0 && !isZeroText;
    // What is too small for a double, which strtod() takes for the nearest one, is out of range.
    hasTinyNumber = hasTinyNumber || isTiny || isSubnormalRoundedUp(text);
    return add(Number::float64(value));
  }
  bool string(std::string& value) override { return add(value); }
  bool binary(nlohmann::json::binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(false); }
  bool start_array(std::size_t) override { return open(true); }
  bool key(std::string& value) override {
    open_.back().key = value;
    return true;
  }
  bool end_object() override {
    Container closed = takeLast();
    return add(
        Dictionary::fromEntries(std::move(closed.entries), Dictionary::Repeated::firstCounts));
  }
  bool end_array() override { return add(takeLast().array); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

  std::optional<Value> root;
  std::size_t deepest = 0;
  bool hasTinyNumber = false;

 private:
  struct Container {
    bool isArray;
    Array array;
    std::vector<Dictionary::Entry> entries;
    std::string key;
  };

  static bool isSubnormalRoundedUp(const std::string& text) {
    double value = 0;
    return std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc{};
  }

  bool open(bool isArray) {
    open_.push_back({isArray, {}, {}, {}});
    deepest = std::max(deepest, open_.size());
    return true;
  }

  Container takeLast() {
    Container last = std::move(open_.back());
    open_.pop_back();
    return last;
  }

  bool add(Value value) {
    if (open_.empty()) {
      root = std::move(value);
    } else if (open_.back().isArray) {
      open_.back().array.push_back(std::move(value));
    } else {
      open_.back().entries.emplace_back(std::move(open_.back().key), std::move(value));
    }
    return true;
  }

  std::vector<Container> open_;
};

// What the library's rules refuse although it is JSON to the other reader: a bare text or number,
// more than 512 levels, a number below the range of a double, a zero byte after the end.
bool isRefusedByRule(const ValueBuilder& other, const std::string& text) {
  const bool isContainer = other.root->array() != nullptr || other.root->dictionary() != nullptr;
  const std::vector<std::size_t> places = structureOf(text);
  const bool hasZero = std::any_of(places.begin(), places.end(),
                                   [&](std::size_t place) { return text[place] == '\0'; });
  return !isContainer || other.deepest > 512 || other.hasTinyNumber || hasZero;
}

void checkAgainstTheOtherReader(std::string_view bytes, const std::optional<Value>& ours) {
  const std::optional<std::string> utf8 = inUtf8(bytes);
  const std::string text = withoutTrailingCommas(utf8.value_or(""));
  ValueBuilder other;
  // A second mark in front is one too many for the library; the other reader skips one.
  const bool isRead =
      utf8 && !text.starts_with("\xEF\xBB\xBF") && nlohmann::json::sax_parse(text, &other);
  const bool isExpected = isRead && !isRefusedByRule(other, text);
  require(ours.has_value() == isExpected,
          isExpected ? "what is JSON is read" : "what is no JSON is refused", bytes);
  if (ours) require(isSame(*ours, *other.root), "both readers read the same", ours->description());
}

// A dictionary that was read is written as a text that reads the same, as doubles go: a real that
// is whole is written, and so read, as an integer.
void checkThatItIsWrittenAsItWasRead(const Dictionary& object) {
  const std::optional<std::string> text = json::serialize(object, nullptr);
  require(text.has_value(), "what was read can be written", object.description());
  const std::optional<Value> again = json::parse(*text, nullptr);
  const auto isSameDouble = [](const Number& a, const Number& b) {
    return a.isBoolean() == b.isBoolean() && a.doubleValue() == b.doubleValue();
  };
  require(again && isSame(object, *again, isSameDouble), "what was written reads the same", *text);
  require(json::serialize(*again->dictionary(), nullptr) == text, "it keeps its order", *text);
}

// As replies to a report.

constexpr char kFailure = 0x15;

enum class Outcome { delivered, dropped, again };

bool isTrue(const Dictionary& reply, const char* key) {
  const Number* number = reply.findNumber(key);
  return number != nullptr && number->boolValue();
}

std::optional<int> transportError(std::string_view reply) {
  if (!reply.starts_with(kFailure)) return std::nullopt;
  int code = 0;
  std::from_chars(reply.data() + 1, reply.data() + reply.size(), code);
  return code;
}

Outcome expectedOutcome(std::string_view reply) {
  if (const auto code = transportError(reply)) {
    return ZLNErrors::isNetworkErrorPermanent(Error{kUrlErrorDomain, *code, std::nullopt, {}})
               ? Outcome::dropped
               : Outcome::again;
  }
  const std::optional<Value> root = json::parse(reply, nullptr);
  const Dictionary* object = root ? root->dictionary() : nullptr;
  if (object == nullptr || object->findNumber("success") == nullptr) return Outcome::again;
  if (isTrue(*object, "success")) return Outcome::delivered;
  return isTrue(*object, "errorIsPermanent") ? Outcome::dropped : Outcome::again;
}

using Replies = std::vector<std::string>;

void answer(FuzzedHost& host, std::size_t request, const std::string& reply) {
  if (const auto code = transportError(reply)) {
    host.fail(request, *code);
  } else {
    host.reply(request, reply);
  }
}

// How often one report is sent until it is gone or held, and whether it is held.
std::pair<std::size_t, bool> expectedCourse(const Replies& replies) {
  constexpr std::size_t kTries = 3;
  for (std::size_t sent = 1; sent <= kTries; ++sent) {
    if (expectedOutcome(replies[(sent - 1) % replies.size()]) != Outcome::again)
      return {sent, false};
  }
  return {kTries, true};
}

void useAsRepliesToAReport(const Replies& replies, std::uint64_t logLevel) {
  FuzzedHost host(logLevel);
  host.env.defaults.set("com.zelnor.firstSessionSent", Number::boolean(true));
  host.env.files.put(
      kSettingsFile,
      *property_list::write(
          Dictionary{{"lastUpdate", Number::float64(1.7e9)},
                     {"ConfigSerializationKeySendStartSessionReports", Number::boolean(false)}}));
  host.start();
  ZLNSendBannerAdAttemptReport("net", true);

  const std::size_t firstOfTheseReplies = host.env.http.requests().size();
  host.env.dispatch.runAll();
  require(firstOfTheseReplies == 0 && host.env.http.requests().size() == 1, "one report is sent");
  require(host.answerAll(10,
                         [&](std::size_t request) {
                           answer(host, request, replies[request % replies.size()]);
                         }),
          "a report is not tried without end");

  const auto [sent, isHeld] = expectedCourse(replies);
  require(host.env.http.requests().size() == sent,
          "a report is sent as often as its replies ask for",
          std::to_string(host.env.http.requests().size()));
  require(host.storedReports() && host.storedReports()->size() == (isHeld ? 1u : 0u),
          "a report is kept for as long as it is owed",
          host.env.files.contents(kReportsFile).value_or("no file"));
}

// As replies with settings.

bool isSettings(std::string_view reply) {
  const std::optional<Value> root = json::parse(reply, nullptr);
  return !transportError(reply) && root && root->dictionary() != nullptr;
}

Dictionary settings() { return ZLNReportingConfig::sharedConfig()->configToDictionary(); }

void useAsRepliesWithSettings(const Replies& replies, std::uint64_t logLevel) {
  FuzzedHost host(logLevel);
  ZLNInitializeReporting("engine-5");
  for (const std::string& reply : replies) {
    ZLNReportingConfig::sharedConfig()->updateConfigFromRemote();
    const Dictionary before = settings();
    answer(host, host.env.http.requests().size() - 1, reply);
    if (!isSettings(reply)) {
      require(settings() == before, "what holds no settings changes none",
              settings().description());
    }
  }
  const Dictionary last = settings();
  host.restart();
  ZLNInitializeReporting("engine-5");
  require(settings() == last, "the next process has the settings of the last reply",
          last.description() + settings().description());
}

// A session under whatever settings the server has handed out.
void playUnderThem(const Replies& replies, std::uint64_t logLevel) {
  FuzzedHost host(logLevel);
  const auto answerNext = [&](std::size_t request) {
    if (request < replies.size()) {
      answer(host, request, replies[request]);
    } else {
      host.reply(request, request < 8 ? "{\"success\":false}" : "{\"success\":true}");
    }
  };
  host.start();
  host.answerAll(20, answerNext);
  ZLNSendRewardedAdAttemptReport("net", false);
  host.leaveAndReturn();
  host.env.app.becomeActive();
  host.env.app.terminate();
  require(host.answerAll(500, answerNext), "sending comes to its end");
}

Replies repliesOf(std::string_view bytes) {
  constexpr std::size_t kMostReplies = 8;
  Input input(bytes);
  Replies replies;
  do {
    replies.emplace_back(input.takeUpTo(0x1E));
  } while (!input.isEmpty() && replies.size() < kMostReplies);
  return replies;
}

void checkAsJson(const std::string& reply) {
  Error error;
  const std::optional<Value> value = json::parse(reply, &error);
  require(value.has_value() == error.domain.empty(), "an error is given, and only then", reply);
  require(isValidUtf8(error.description()), "the error is text", error.description());
  checkAgainstTheOtherReader(reply, value);
  if (value && value->dictionary() != nullptr) {
    checkThatItIsWrittenAsItWasRead(*value->dictionary());
  }
}

}  // namespace
}  // namespace zln::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zln::fuzz;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const Replies replies = repliesOf(bytes);
  const std::uint64_t logLevel = logLevelFor(size);
  if (replies.size() > 1) checkAsJson(std::string(bytes));
  for (const std::string& reply : replies) checkAsJson(reply);
  useAsRepliesToAReport(replies, logLevel);
  useAsRepliesWithSettings(replies, logLevel);
  if (std::any_of(replies.begin(), replies.end(), &isSettings)) playUnderThem(replies, logLevel);
  return 0;
}
