// The input is what a server says: one reply, or several with a byte 0x1E between them. Each is
// read as JSON, beside another reader; then a report and the settings get them as their replies,
// one after the other and round again. A reply that begins with a byte 0x15 stands for a request
// that failed with the transport's error of the number that follows.

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

struct Encoding {
  std::size_t markLength;
  std::size_t unitSize;
  bool isBigEndian;
};

bool hasZeros(std::string_view bytes, std::string_view pattern) {
  if (bytes.size() < pattern.size()) return false;
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    if ((bytes[at] == 0) != (pattern[at] == '0')) return false;
  }
  return true;
}

Encoding encodingOf(std::string_view bytes) {
  using namespace std::string_view_literals;
  if (bytes.starts_with("\xEF\xBB\xBF"sv)) return {3, 1, false};
  if (bytes.starts_with("\xFF\xFE\0\0"sv)) return {4, 4, false};
  if (bytes.starts_with("\0\0\xFE\xFF"sv)) return {4, 4, true};
  if (bytes.starts_with("\xFF\xFE"sv)) return {2, 2, false};
  if (bytes.starts_with("\xFE\xFF"sv)) return {2, 2, true};
  if (hasZeros(bytes, "000x")) return {0, 4, true};
  if (hasZeros(bytes, "x000")) return {0, 4, false};
  if (hasZeros(bytes, "0x0x")) return {0, 2, true};
  if (hasZeros(bytes, "x0x0")) return {0, 2, false};
  return {0, 1, false};
}

std::vector<char32_t> unitsOf(std::string_view bytes, const Encoding& encoding) {
  std::vector<char32_t> units;
  for (std::size_t at = 0; at < bytes.size(); at += encoding.unitSize) {
    char32_t unit = 0;
    for (std::size_t byte = 0; byte < encoding.unitSize; ++byte) {
      const std::size_t shift = encoding.isBigEndian ? encoding.unitSize - 1 - byte : byte;
      unit |= char32_t{static_cast<unsigned char>(bytes[at + byte])} << (8 * shift);
    }
    units.push_back(unit);
  }
  return units;
}

// Pairs of surrogates become one; absent when one is alone.
std::optional<std::vector<char32_t>> joinedPairs(const std::vector<char32_t>& units) {
  std::vector<char32_t> joined;
  for (std::size_t at = 0; at < units.size(); ++at) {
    const char32_t unit = units[at];
    if (unit < 0xD800 || unit > 0xDFFF) {
      joined.push_back(unit);
      continue;
    }
    const bool isPair = unit < 0xDC00 && at + 1 < units.size() && units[at + 1] >> 10 == 0x37;
    if (!isPair) return std::nullopt;
    joined.push_back(0x10000 + ((unit & 0x3FF) << 10) + (units[++at] & 0x3FF));
  }
  return joined;
}

std::optional<std::string> inUtf8(std::string_view bytes) {
  const Encoding encoding = encodingOf(bytes);
  bytes.remove_prefix(encoding.markLength);
  if (encoding.unitSize == 1) return std::string(bytes);
  if (bytes.size() % encoding.unitSize != 0) return std::nullopt;
  std::vector<char32_t> units = unitsOf(bytes, encoding);
  if (encoding.unitSize == 2) {
    const auto joined = joinedPairs(units);
    if (!joined) return std::nullopt;
    units = *joined;
  }
  std::string text;
  for (const char32_t unit : units) {
    if (unit > 0x10FFFF || (unit >= 0xD800 && unit <= 0xDFFF)) return std::nullopt;
    appendUtf8(text, unit);
  }
  return text;
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
bool isSameInJson(const Value& a, const Value& b);

bool isSameInJson(const Dictionary& a, const Dictionary& b) {
  return std::equal(a.entries().begin(), a.entries().end(), b.entries().begin(), b.entries().end(),
                    [](const auto& x, const auto& y) {
                      return x.first == y.first && isSameInJson(x.second, y.second);
                    });
}

bool isSameInJson(const Value& a, const Value& b) {
  if (a.number() != nullptr && b.number() != nullptr) {
    return a.number()->isBoolean() == b.number()->isBoolean() &&
           a.number()->doubleValue() == b.number()->doubleValue();
  }
  if (a.array() != nullptr && b.array() != nullptr) {
    return std::equal(a.array()->begin(), a.array()->end(), b.array()->begin(), b.array()->end(),
                      [](const Value& x, const Value& y) { return isSameInJson(x, y); });
  }
  if (a.dictionary() != nullptr && b.dictionary() != nullptr) {
    return isSameInJson(*a.dictionary(), *b.dictionary());
  }
  return a == b;
}

void checkThatItIsWrittenAsItWasRead(const Dictionary& object) {
  const std::optional<std::string> text = json::serialize(object, nullptr);
  require(text.has_value(), "what was read can be written", object.description());
  const std::optional<Value> again = json::parse(*text, nullptr);
  require(again && isSameInJson(object, *again), "what was written reads the same", *text);
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
