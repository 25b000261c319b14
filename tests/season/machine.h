#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/environment.h"
#include "testkit/fake_app.h"
#include "testkit/fake_background_tasks.h"
#include "testkit/fake_clock.h"
#include "testkit/fake_defaults.h"
#include "testkit/fake_device.h"
#include "testkit/fake_dispatch.h"
#include "testkit/fake_files.h"

namespace zln::season {

inline constexpr char kReportsFile[] = "/support/com.zelnor.sdk/reporting/reports.json";
inline constexpr char kSpareReportsFile[] = "/support/com.zelnor.sdk/.reports.json.spare";
inline constexpr char kSettingsFile[] = "/support/com.zelnor.sdk/data/config.dat";

// Is told what the library does to the machine, inside the library's own calls.
class MachineWatcher {
 public:
  virtual ~MachineWatcher() = default;
  virtual void reportFileWritten(std::string_view text, bool succeeded) = 0;
  virtual void settingsFileWritten(std::string_view text, bool succeeded) = 0;
  // `number` is what Network knows the request by.
  virtual void requested(std::uint64_t number, const HttpRequest& request) = 0;
  // The user defaults are on disk.
  virtual void defaultsStored(const std::map<std::string, Value>& values) = 0;
  // A second of a background monitor's wait has passed.
  virtual void slept() = 0;
  // A background monitor has asked how much time is left.
  virtual void askedRemaining(double seconds) = 0;
  // The pool's task waits for the main thread, whose tasks come first.
  virtual void waitsForMain() = 0;
};

// The power of a process that may be killed inside any call that the library makes to its machine.
// What is done afterwards is done by nobody: it has no effect.
class Power {
 public:
  // The process dies in its so-many-th call from now; 0 is never.
  void failAfter(std::uint64_t calls) { left_ = calls; }
  void cut() { isOff_ = true; }
  void restore() {
    isOff_ = failedInACall_ = false;
    left_ = 0;
  }
  bool isOff() const { return isOff_; }
  bool failedInACall() const { return failedInACall_; }
  // Counts a call; false when it has no effect any more.
  bool spend() {
    if (!isOff_ && left_ != 0 && --left_ == 0) isOff_ = failedInACall_ = true;
    return !isOff_;
  }

 private:
  bool isOff_ = false;
  bool failedInACall_ = false;
  std::uint64_t left_ = 0;
};

// The requests that wait for an answer. Unlike FakeHttp it forgets what was answered.
class Network : public HttpClient {
 public:
  Network(Power& power, MachineWatcher& watcher) : power_(power), watcher_(watcher) {}

  void upload(HttpRequest request, std::function<void(HttpReply)> completion) override;

  std::size_t outstanding() const { return waiting_.size(); }
  std::uint64_t numberAt(std::size_t index) const { return waiting_[index].number; }
  bool isReport(std::size_t index) const { return waiting_[index].isReport; }
  // Answers the request and runs its completion.
  void answer(std::size_t index, HttpReply reply);
  void forgetOutstanding() { waiting_.clear(); }

 private:
  struct Waiting {
    std::uint64_t number;
    bool isReport;
    std::function<void(HttpReply)> completion;
  };

  Power& power_;
  MachineWatcher& watcher_;
  std::vector<Waiting> waiting_;
  std::uint64_t lastNumber_ = 0;
};

// Counts up in the last group of digits.
class Uuids : public UuidSource {
 public:
  std::string next() override { return textOf(++count_); }
  std::uint64_t count() const { return count_; }
  static std::string textOf(std::uint64_t number);
  // 0 for a text that is none of these.
  static std::uint64_t numberOf(std::string_view text);

 private:
  std::uint64_t count_ = 0;
};

// Which of the machine's services are out of order.
struct Faults {
  bool reportWrites = false;
  bool settingsWrites = false;
  bool reads = false;
  bool removals = false;
  bool synchronizing = false;
};

// The fakes behind a layer in which services fail and the process can die. The clock, the files and
// what was stored of the user defaults outlive the process.
class Machine {
 public:
  explicit Machine(MachineWatcher& watcher);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  Environment& environment();
  // Takes away what dies with a process. Called before and after its objects are deleted.
  void endProcess();
  // Deletes everything that the application has stored.
  void loseStorage();

  Power power;
  Faults faults;
  FakeClock clock;
  FakeDispatch dispatch;
  FakeFiles files;
  FakeDefaults defaults;
  FakeDevice device;
  std::optional<FakeBackgroundTasks> backgroundTasks;
  Uuids uuids;
  Network network;
  NotificationCenter notificationCenter;
  FakeApp app{notificationCenter, dispatch};

 private:
  // The fakes as the library sees them.
  class Layer;
  std::unique_ptr<Layer> layer_;
  // The user defaults that are on disk.
  std::map<std::string, Value> storedDefaults_;
};

}  // namespace zln::season
