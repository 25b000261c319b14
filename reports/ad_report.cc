#include "reports/ad_report.h"

#include <utility>

#include "support/ZLNReportingUtils.h"
#include "support/process_state.h"

namespace zln {
namespace {

constexpr char kAdEventIdKey[] = "adEventId";
constexpr char kNetworkKey[] = "network";
constexpr char kAdTypeKey[] = "adType";
constexpr char kFillKey[] = "fill";

void setIfPresent(Dictionary& dictionary, const char* key, const std::optional<Value>& value) {
  if (value) dictionary.set(key, *value);
}

// What a stored text says when a truth value is asked of it: after blanks, Y, y, T, t or a number
// that is not zero.
bool textIsTrue(const std::string& text) {
  std::size_t at = text.find_first_not_of(" \t\n\r\f\v");
  if (at == std::string::npos) return false;
  if (std::string_view("YyTt").find(text[at]) != std::string_view::npos) return true;
  if (text[at] == '+' || text[at] == '-') ++at;
  at = text.find_first_not_of('0', at);
  return at != std::string::npos && text[at] >= '1' && text[at] <= '9';
}

bool isTrue(const Value* value) {
  if (value == nullptr) return false;
  if (const Number* number = value->number()) return number->boolValue();
  if (const std::string* text = value->string()) return textIsTrue(*text);
  return false;
}

}  // namespace

Dictionary AdReport::creationDictionary(std::optional<std::string> network,
                                        std::optional<std::string> adType, bool filled) {
  Dictionary dictionary;
  dictionary.set(kAdEventIdKey, environment().uuids.next());
  dictionary.require(kNetworkKey, std::move(network));
  dictionary.require(kAdTypeKey, std::move(adType));
  dictionary.set(kFillKey, Number::boolean(filled));
  return dictionary;
}

AdReport::AdReport(const Kind& kind, const Dictionary& dictionary)
    : ZLNReportBase(dictionary, kind.url),
      kind_(kind),
      uuid_(storedValue(dictionary, kAdEventIdKey)),
      network_(storedValue(dictionary, kNetworkKey)),
      adType_(storedValue(dictionary, kAdTypeKey)),
      platform_("iOS"),
      bundleId_(environment().deviceFacts.mainBundleValue(kBundleIdentifierKey)),
      device_(ZLNReportingUtils::getDeviceName()),
      filled_(isTrue(dictionary.find(kFillKey))) {}

std::optional<Value> AdReport::storedValue(const Dictionary& dictionary, const char* key) {
  const Value* value = dictionary.find(key);
  if (value == nullptr) return std::nullopt;
  return *value;
}

std::optional<Dictionary> AdReport::toDictionary() const {
  std::optional<Dictionary> dictionary = superDictionary();
  if (!dictionary) return std::nullopt;
  dictionary->set("type", kind_.reportType);
  dictionary->setIfPresent("device", device_);
  dictionary->setIfPresent("platform", platform_);
  dictionary->setIfPresent("bundleId", bundleId_);
  setIfPresent(*dictionary, kAdEventIdKey, uuid_);
  dictionary->set(kNetworkKey, network_.value_or("unknown"));
  dictionary->set(kAdTypeKey, adType_.value_or("unknown"));
  addKindKeys(*dictionary);
  dictionary->set(kFillKey, Number::boolean(filled_));
  return dictionary;
}

void AdReport::addKindKeys(Dictionary&) const {}

}  // namespace zln
