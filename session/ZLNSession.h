#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/date.h"
#include "platform/value.h"
#include "support/field.h"

namespace zln {

// One period of use of the game, with its own time accounting. Owned by the session manager, shared
// by the session reports. Any thread may call it; nothing joins its fields.
class ZLNSession {
 public:
  // A running session that begins at `date`.
  static std::shared_ptr<ZLNSession> initWithStartTime(Date date);
  // A session out of its dictionary form, running whatever the dictionary says. Null when the
  // identifier or the start time is missing or of the wrong kind.
  static std::shared_ptr<ZLNSession> initWithDictionary(const Dictionary& dictionary);

  // Every field that is present, and the duration.
  Dictionary toDictionary() const;
  // The part of toDictionary() that a report of this type carries.
  Dictionary dictionaryForReportType(std::string_view reportType) const;

  // Ends the running interval at `date`. A date before the last resume lessens the total.
  void pause(Date date);
  // Begins a new running interval at `date`, unless the session runs or was stopped.
  void resume(Date date);
  // Stops the session at `date`, also when it was stopped before. False when the times are not
  // plausible enough to be reported.
  bool stop(Date date);

  // Above zero; rises with every change, after it.
  std::uint64_t revision() const { return revision_.load(std::memory_order_acquire); }

  // "session: [start - stop] duration sec."
  std::string description() const;

  std::string uid() const { return uid_.get(); }
  void setUid(std::string uid) { change(uid_, std::move(uid)); }
  Date startTime() const { return startTime_.get(); }
  void setStartTime(Date date) { change(startTime_, date); }
  std::optional<Date> stopTime() const { return stopTime_.get(); }
  void setStopTime(std::optional<Date> date) { change(stopTime_, date); }
  std::optional<Date> lastPauseTime() const { return lastPauseTime_.get(); }
  void setLastPauseTime(std::optional<Date> date) { change(lastPauseTime_, date); }
  std::optional<Date> lastResumeTime() const { return lastResumeTime_.get(); }
  void setLastResumeTime(std::optional<Date> date) { change(lastResumeTime_, date); }
  // Seconds of use in all completed running intervals.
  float totalDuration() const { return totalDuration_.get(); }
  void setTotalDuration(float seconds) { change(totalDuration_, seconds); }
  std::optional<std::string> device() const { return device_.get(); }
  void setDevice(std::optional<std::string> device) { change(device_, std::move(device)); }
  std::optional<std::string> os() const { return os_.get(); }
  void setOs(std::optional<std::string> os) { change(os_, std::move(os)); }
  std::optional<std::string> sdkVersion() const { return sdkVersion_.get(); }
  void setSdkVersion(std::optional<std::string> version) {
    change(sdkVersion_, std::move(version));
  }
  std::optional<std::string> mwVersion() const { return mwVersion_.get(); }
  void setMwVersion(std::optional<std::string> version) { change(mwVersion_, std::move(version)); }
  std::optional<std::string> appVersion() const { return appVersion_.get(); }
  void setAppVersion(std::optional<std::string> version) {
    change(appVersion_, std::move(version));
  }
  std::optional<std::string> reportingVersion() const { return reportingVersion_.get(); }
  void setReportingVersion(std::optional<std::string> version) {
    change(reportingVersion_, std::move(version));
  }
  std::optional<std::string> bundleid() const { return bundleid_.get(); }
  void setBundleid(std::optional<std::string> bundleid) { change(bundleid_, std::move(bundleid)); }
  std::optional<std::string> platform() const { return platform_.get(); }
  void setPlatform(std::optional<std::string> platform) { change(platform_, std::move(platform)); }
  bool running() const { return running_.get(); }
  void setRunning(bool running) { change(running_, running); }

 private:
  ZLNSession() = default;

  template <typename T>
  void change(Field<T>& field, T value) {
    field.set(std::move(value));
    revision_.fetch_add(1, std::memory_order_release);
  }

  Field<std::string> uid_;
  Field<Date> startTime_;
  Field<std::optional<Date>> stopTime_;
  Field<std::optional<Date>> lastPauseTime_;
  Field<std::optional<Date>> lastResumeTime_;
  Field<float> totalDuration_{0.0f};
  Field<std::optional<std::string>> device_;
  Field<std::optional<std::string>> os_;
  Field<std::optional<std::string>> sdkVersion_;
  Field<std::optional<std::string>> mwVersion_;
  Field<std::optional<std::string>> appVersion_;
  Field<std::optional<std::string>> reportingVersion_;
  Field<std::optional<std::string>> bundleid_;
  Field<std::optional<std::string>> platform_;
  Field<bool> running_{false};
  std::atomic<std::uint64_t> revision_{1};
};

}  // namespace zln
