#include "reports/ZLNReportBase.h"

#include <cstddef>
#include <utility>

#include "platform/identity.h"
#include "platform/property_list.h"
#include "session/ZLNSessionManager.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {
namespace {

constexpr char kUserIdKey[] = "userId";
constexpr char kCountryKey[] = "country";

// More than the element of most reports takes.
constexpr std::size_t kRoomForElement = 1024;
// Elements are directly in the file's one array.
constexpr int kElementLevel = 1;

}  // namespace

std::shared_ptr<ZLNReportBase> ZLNReportBase::initWithURLString(const std::string& url) {
  return std::shared_ptr<ZLNReportBase>(new ZLNReportBase(url));
}

std::shared_ptr<ZLNReportBase> ZLNReportBase::initWithDictionary(const Dictionary& dictionary,
                                                                 const std::string& url) {
  return std::shared_ptr<ZLNReportBase>(new ZLNReportBase(dictionary, url));
}

ZLNReportBase::ZLNReportBase(const std::string& url)
    : urlString_(url),
      country_(environment().deviceFacts.countryCode()),
      userId_(ZLNSessionManager::sharedManager()->sessionUserId()) {}

ZLNReportBase::ZLNReportBase(const Dictionary& dictionary, const std::string& url)
    : ZLNReportBase(url) {
  if (const std::string* country = dictionary.findString(kCountryKey)) country_ = *country;
  if (const std::string* userId = dictionary.findString(kUserIdKey)) userId_ = *userId;
}

std::optional<Dictionary> ZLNReportBase::toDictionary() const {
  Dictionary dictionary;
  if (userId_) dictionary.set(kUserIdKey, *userId_);
  dictionary.setIfPresent(kCountryKey, country_);
  return dictionary;
}

ReportElement ZLNReportBase::toElement() const {
  // Asked for first: what changes while the dictionary is made is then made again the next time.
  const std::uint64_t current = revision();
  {
    std::lock_guard lock(elementMutex_);
    if (element_ && elementRevision_ == current) return element_;
  }
  const std::optional<Dictionary> dictionary = toDictionary();
  std::string text;
  text.reserve(kRoomForElement);
  if (dictionary) property_list::appendElement(text, *dictionary, kElementLevel);
  std::lock_guard lock(elementMutex_);
  elementRevision_ = current;
  if (!dictionary) {
    element_ = nullptr;
  } else if (!element_ || *element_ != text) {
    // Most changes of a session do not show in the reports of its beginning. The copy, of which up
    // to a thousand are kept, takes no more room than it needs.
    element_ = std::make_shared<const std::string>(text);
  }
  return element_;
}

std::optional<Value> ZLNReportBase::superSerialization() const {
  return ZLNReportBase::toDictionary();
}

std::optional<Dictionary> ZLNReportBase::superDictionary() const {
  const std::optional<Value> base = superSerialization();
  if (base && base->dictionary() != nullptr) return *base->dictionary();
  const char* kind = base ? base->className() : nullptr;
  logError("invalid super serialization %@ (%@)", base, kind);
  return std::nullopt;
}

std::string ZLNReportBase::description() const { return identityText(className(), this); }

}  // namespace zln
