#include "reports/session_report.h"

#include <utility>

namespace zln {

SessionReport::SessionReport(const Kind& kind, std::shared_ptr<ZLNSession> session)
    : ZLNReportBase(kind.url), kind_(kind), session_(std::move(session)) {}

SessionReport::SessionReport(const Kind& kind, const Dictionary& dictionary)
    : ZLNReportBase(dictionary, kind.url),
      kind_(kind),
      session_(ZLNSession::initWithDictionary(dictionary)) {}

std::optional<Dictionary> SessionReport::toDictionary() const {
  std::optional<Dictionary> dictionary = superDictionary();
  if (!dictionary) return std::nullopt;
  dictionary->set("type", kind_.reportType);
  if (session_) dictionary->merge(session_->dictionaryForReportType(kind_.sessionView));
  return dictionary;
}

std::uint64_t SessionReport::revision() const {
  return ZLNReportBase::revision() + (session_ ? session_->revision() : 0);
}

}  // namespace zln
