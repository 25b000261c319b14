#include "collector/settings_lint.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

#include "collector/json.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr std::string_view kPrefix = "ConfigSerializationKey";
constexpr std::string_view kImmediately = "TransmitReportsImmediately";
constexpr std::string_view kOnBackgrounding = "TransmitReportsOnApplicationBackgrounding";
constexpr std::string_view kOnForegrounding = "TransmitReportsOnApplicationForegrounding";

constexpr double kManyTries = 20;
constexpr double kMinute = 60;
constexpr double kDay = 24 * 60 * kMinute;
constexpr double kMonth = 30 * kDay;
// The library stops a session when the system lets the game run for 10 seconds more or less.
constexpr double kWithinShortGrant = 20;
constexpr double kWithinLongGrant = 170;

class Lint {
 public:
  void notice(std::string_view key, const std::string& text) { say(key, "notice", text); }
  void warn(std::string_view key, const std::string& text) { say(key, "warning", text); }
  void error(std::string_view key, const std::string& text) { say(key, "error", text); }

  json take() { return std::move(findings_); }

 private:
  void say(std::string_view key, const char* severity, const std::string& text) {
    findings_.push_back({{"key", key}, {"severity", severity}, {"text", text}});
  }

  json findings_ = json::array();
};

std::string text(double number) {
  char digits[32];
  const auto [end, failure] = std::to_chars(digits, digits + sizeof digits, number);
  return std::string(digits, end);
}

std::string days(double seconds) { return text(std::round(seconds / kDay)) + " days"; }

// ---- What each setting does ----

using Explain = void (*)(std::string_view key, double value, Lint& lint);

void explainImmediately(std::string_view key, double value, Lint& lint) {
  if (value == 0) {
    lint.notice(key,
                "reports wait until the game goes to the background or returns, as the other two "
                "transmit settings say");
  }
}

void explainOnBackgrounding(std::string_view key, double value, Lint& lint) {
  if (value == 0) {
    lint.notice(key, "what is waiting is not sent when the game goes to the background");
  }
}

void explainOnForegrounding(std::string_view key, double value, Lint& lint) {
  if (value == 0) lint.notice(key, "what is waiting is not sent when the game returns");
}

void explainFailureLimit(std::string_view key, double value, Lint& lint) {
  if (value < 1) {
    lint.warn(key,
              "a report is held at its first failure, until the game next comes to the foreground: "
              "the same as 1");
  } else if (value == 1) {
    lint.notice(key,
                "a report is held at its first failure, until the game next comes to the "
                "foreground");
  } else if (value > kManyTries) {
    lint.warn(key, "a report that fails is sent again at once, without a pause, up to " +
                       text(value) + " times: a server in trouble gets more of it");
  }
}

void explainInactivityLimit(std::string_view key, double value, Lint& lint) {
  if (value <= 0) {
    lint.warn(key, "every pause ends the session, however short it is: a call, a notification");
  } else if (std::isinf(value)) {
    lint.warn(key, "too large for a 32-bit real: a paused session is resumed however long ago");
  } else if (value > kDay) {
    lint.notice(key, "a session that was paused for up to " + days(value) + " is resumed");
  }
}

void explainUpdateInterval(std::string_view key, double value, Lint& lint) {
  if (value < 0) {
    lint.warn(key, "settings are fetched at every start and whenever the game becomes active");
  } else if (value == 0) {
    lint.warn(key,
              "settings are fetched at every start and whenever the game becomes active, but for "
              "the very instant of the last fetch");
  } else if (value < kMinute) {
    lint.notice(key, "settings are fetched nearly whenever the game becomes active");
  } else if (value > kMonth) {
    lint.warn(key, "a game that has taken this asks again after " + days(value) +
                       " only: until then nothing can be changed for it");
  }
}

void explainBackgroundTimeout(std::string_view key, double value, Lint& lint) {
  if (value <= 0) {
    lint.warn(key, "a session is stopped as soon as the game goes to the background");
  } else if (value > kWithinLongGrant) {
    lint.warn(
        key,
        "longer than systems grant: a session is stopped when 10 seconds are left of what the "
        "system grants to a game in the background, which is 30 seconds to 3 minutes on most");
  } else if (value > kWithinShortGrant) {
    lint.notice(key,
                "a system that grants 30 seconds in the background has the session stopped after "
                "20 already");
  }
  if (value > 0 && value <= kWithinLongGrant && value != std::floor(value)) {
    lint.notice(key, "counted in whole seconds: " + text(std::ceil(value)));
  }
}

void explainSendEach(std::string_view key, double value, Lint& lint) {
  if (value == 0) {
    lint.warn(
        key,
        "these reports are dropped when they are made and lost for good, until a later answer "
        "says true, also over new starts of the game");
  }
}

void explainSendFirst(std::string_view key, double value, Lint& lint) {
  if (value == 0) {
    lint.warn(
        key,
        "an installation whose first session begins meanwhile never reports it, also not when "
        "a later answer says true");
  }
}

// ---- What the library reads from a value ----

enum class Kind { kBoolean, kInteger, kReal };

struct Setting {
  std::string_view name;
  Kind kind;
  Explain explain;
};

constexpr Setting kKnownSettings[] = {
    {kImmediately, Kind::kBoolean, explainImmediately},
    {kOnBackgrounding, Kind::kBoolean, explainOnBackgrounding},
    {kOnForegrounding, Kind::kBoolean, explainOnForegrounding},
    {"ReportTemporaryFailureLimit", Kind::kInteger, explainFailureLimit},
    {"SessionInactivityTimeLimit", Kind::kReal, explainInactivityLimit},
    {"ConfigUpdateInterval", Kind::kInteger, explainUpdateInterval},
    {"UserSessionBackgroundTimeoutSeconds", Kind::kReal, explainBackgroundTimeout},
    {"SendStartSessionReports", Kind::kBoolean, explainSendEach},
    {"SendStopSessionReports", Kind::kBoolean, explainSendEach},
    {"SendFirstSessionReports", Kind::kBoolean, explainSendFirst},
};

const Setting* settingNamed(std::string_view name) {
  const auto* found = std::ranges::find(kKnownSettings, name, &Setting::name);
  return found == std::end(kKnownSettings) ? nullptr : found;
}

const Setting* settingOfKey(std::string_view key) {
  return key.starts_with(kPrefix) ? settingNamed(key.substr(kPrefix.size())) : nullptr;
}

double asNumber(const json& value) {
  return value.is_boolean() ? static_cast<double>(value.get<bool>()) : value.get<double>();
}

double readBoolean(std::string_view key, const json& value, Lint& lint) {
  const double number = asNumber(value);
  if (number != 0 && number != 1) {
    lint.notice(key, text(number) + " counts as true: every number but 0 does");
  }
  return number;
}

bool fitsInteger(double number) {
  using Limits = std::numeric_limits<std::int32_t>;
  return number >= Limits::min() && number <= Limits::max();
}

// A whole number that 64 bits hold is cut to 32; any other is held within the range of 32.
double withinInteger(const json& value) {
  using Limits = std::numeric_limits<std::int32_t>;
  constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  const bool isCut = value.is_number_integer() &&
                     (!value.is_number_unsigned() || value.get<std::uint64_t>() <= kHighest);
  if (isCut) return static_cast<std::int32_t>(value.get<std::int64_t>());
  return value.get<double>() < 0 ? Limits::min() : Limits::max();
}

double readInteger(std::string_view key, const json& value, Lint& lint) {
  const double number = std::trunc(asNumber(value));
  if (value.is_boolean()) lint.warn(key, "counts as " + text(number));
  if (number != asNumber(value)) lint.warn(key, "the fraction is cut off: " + text(number));
  if (fitsInteger(number)) return number;
  const double taken = withinInteger(value);
  lint.error(key, "no 32-bit number: the library takes it for " + text(taken));
  return taken;
}

double readReal(std::string_view key, const json& value, Lint& lint) {
  const double number = asNumber(value);
  if (value.is_boolean()) lint.warn(key, "counts as " + text(number));
  constexpr auto kInfinity = std::numeric_limits<double>::infinity();
  if (std::abs(number) <= std::numeric_limits<float>::max()) return number;
  return number < 0 ? -kInfinity : kInfinity;
}

double readNumber(const Setting& setting, std::string_view key, const json& value, Lint& lint) {
  switch (setting.kind) {
    case Kind::kBoolean:
      return readBoolean(key, value, lint);
    case Kind::kInteger:
      return readInteger(key, value, lint);
    case Kind::kReal:
      break;
  }
  return readReal(key, value, lint);
}

// ---- The object ----

void lintUnknown(std::string_view key, Lint& lint) {
  if (settingNamed(key) != nullptr) {
    lint.error(key, "ignored: the key is " + std::string(kPrefix) + std::string(key));
  } else {
    lint.warn(key, "ignored: no such setting");
  }
}

bool isNumber(const json& value) {
  return value.is_boolean() || (value.is_number() && std::isfinite(value.get<double>()));
}

void lintMember(std::string_view key, const json& value, Lint& lint) {
  const Setting* setting = settingOfKey(key);
  if (setting == nullptr) {
    lintUnknown(key, lint);
  } else if (isNumber(value)) {
    setting->explain(key, readNumber(*setting, key, value, lint), lint);
  } else {
    lint.error(key, std::string("ignored: it must be a number or a boolean, and is ") +
                        (value.is_number() ? "no finite one" : value.type_name()) +
                        "; the setting stays as it is");
  }
}

bool isOff(const json& values, std::string_view name) {
  const auto member = values.find(std::string(kPrefix) + std::string(name));
  return member != values.end() && isNumber(*member) && asNumber(*member) == 0;
}

void lintTogether(const json& values, Lint& lint) {
  if (isOff(values, kImmediately) && isOff(values, kOnBackgrounding) &&
      isOff(values, kOnForegrounding)) {
    lint.error(std::string(kPrefix) + std::string(kImmediately),
               "with all three transmit settings off no report is ever sent: a thousand wait, and "
               "later ones are lost");
  }
}

}  // namespace

json lintSettings(const json& values) {
  Lint lint;
  for (const auto& [key, value] : values.items()) lintMember(key, value, lint);
  lintTogether(values, lint);
  return lint.take();
}

}  // namespace zln::collector
