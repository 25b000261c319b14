#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/date.h"
#include "platform/value.h"
#include "support/field.h"

namespace zln {

// A report as the report file has it; empty when it has a value that the file cannot hold.
using ReportElement = std::shared_ptr<const std::string>;

enum class ReportKind { other, sessionFirst, sessionStart, sessionStop, adAttempt, adZoneAttempt };

// What every report has: the endpoint it is posted to, the user it belongs to, the country, and the
// count of its temporary failures. The kinds of reports derive from it. A report is written while
// it is made and only read afterwards, its failure count excepted.
class ZLNReportBase {
 public:
  // Asks the session manager for the user, which brings it to life when it does not exist yet.
  static std::shared_ptr<ZLNReportBase> initWithURLString(const std::string& url);
  // The same with the country and the user of a stored dictionary, where it holds them as strings.
  static std::shared_ptr<ZLNReportBase> initWithDictionary(const Dictionary& dictionary,
                                                           const std::string& url);

  ZLNReportBase(const ZLNReportBase&) = delete;
  ZLNReportBase& operator=(const ZLNReportBase&) = delete;
  virtual ~ZLNReportBase() = default;

  // What is posted and stored. The kinds add their keys to those of the base. Absent when the
  // report has no dictionary form.
  virtual std::optional<Dictionary> toDictionary() const;
  // The same for the report file: one and the same object as long as it stays the same. Null when
  // the report has no dictionary form.
  ReportElement toElement() const;
  // Changes whenever the dictionary may have changed.
  virtual std::uint64_t revision() const { return revision_.load(std::memory_order_acquire); }
  void raiseRevision() { revision_.fetch_add(1, std::memory_order_release); }

  virtual ReportKind kind() const { return ReportKind::other; }
  // The name of the kind, and the kind with its address, by which log lines name the report.
  virtual const char* className() const { return "ZLNReportBase"; }
  std::string description() const;

  // Kept: nothing sets or reads it; it is always false.
  bool followRedirects() const { return followRedirects_; }
  void setFollowRedirects(bool follow) { followRedirects_ = follow; }
  std::int32_t temporaryFailureCount() const { return temporaryFailureCount_.get(); }
  void setTemporaryFailureCount(std::int32_t count) { temporaryFailureCount_.set(count); }
  const std::string& urlString() const { return urlString_; }
  void setUrlString(std::string url) { urlString_ = std::move(url); }
  // Kept: nothing sets or reads it; it is always absent.
  std::optional<Date> creationTime() const { return creationTime_; }
  void setCreationTime(std::optional<Date> date) { creationTime_ = date; }
  // Kept: nothing sets or reads it; it is always absent.
  const std::optional<std::string>& sessionId() const { return sessionId_; }
  // A text, unless the installation's identifier was stored as something else.
  const std::optional<Value>& userId() const { return userId_; }
  void setUserId(std::optional<Value> userId) {
    userId_ = std::move(userId);
    raiseRevision();
  }
  const std::optional<std::string>& country() const { return country_; }
  void setCountry(std::optional<std::string> country) {
    country_ = std::move(country);
    raiseRevision();
  }

 protected:
  explicit ZLNReportBase(const std::string& url);
  ZLNReportBase(const Dictionary& dictionary, const std::string& url);

  // What the kinds build their dictionaries on: the dictionary of the base.
  virtual std::optional<Value> superSerialization() const;
  // The same for a kind to add its keys to. Absent, with a line in the log, when it is no
  // dictionary.
  std::optional<Dictionary> superDictionary() const;

 private:
  bool followRedirects_ = false;
  Field<std::int32_t> temporaryFailureCount_{0};
  std::string urlString_;
  std::optional<Date> creationTime_;
  std::optional<std::string> sessionId_;
  std::optional<std::string> country_;
  std::optional<Value> userId_;
  std::atomic<std::uint64_t> revision_{0};
  mutable std::mutex elementMutex_;
  mutable ReportElement element_;
  mutable std::uint64_t elementRevision_ = 0;
};

}  // namespace zln
