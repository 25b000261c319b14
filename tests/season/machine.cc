#include "tests/season/machine.h"

#include <cerrno>
#include <charconv>
#include <utility>

#include "support/endpoints.h"

namespace zln::season {
namespace {

constexpr std::string_view kUuidHead = "00000000-0000-4000-8000-";
constexpr std::size_t kUuidTail = 12;

class LayeredReportFile : public AtomicFile {
 public:
  LayeredReportFile(Machine& machine, MachineWatcher& watcher, std::shared_ptr<AtomicFile> file)
      : machine_(machine), watcher_(watcher), file_(std::move(file)) {}

  bool replace(std::string_view content, std::size_t unchangedPrefix, Error* error) override {
    if (!machine_.power.spend()) return false;
    const bool written =
        !machine_.faults.reportWrites && file_->replace(content, unchangedPrefix, error);
    // What the fake has put there, which counts on what the library says is unchanged.
    const auto stored = written ? machine_.files.contents(kReportsFile) : std::nullopt;
    watcher_.reportFileWritten(stored ? std::string_view(*stored) : content, written);
    return written;
  }

 private:
  Machine& machine_;
  MachineWatcher& watcher_;
  const std::shared_ptr<AtomicFile> file_;
};

}  // namespace

void Network::upload(HttpRequest request, std::function<void(HttpReply)> completion) {
  if (!power_.spend()) return;
  const std::uint64_t number = ++lastNumber_;
  waiting_.push_back({number, request.url != kConfigUrl, std::move(completion)});
  watcher_.requested(number, request);
}

void Network::answer(std::size_t index, HttpReply reply) {
  const auto completion = std::move(waiting_[index].completion);
  waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(index));
  completion(std::move(reply));
}

std::string Uuids::textOf(std::uint64_t number) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text = std::string(kUuidHead) + std::string(kUuidTail, '0');
  for (auto digit = text.rbegin(); number != 0; ++digit, number /= 16)
    *digit = kDigits[number % 16];
  return text;
}

std::uint64_t Uuids::numberOf(std::string_view text) {
  if (text.size() != kUuidHead.size() + kUuidTail || !text.starts_with(kUuidHead)) return 0;
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data() + kUuidHead.size(), end, number, 16);
  return read.ptr == end ? number : 0;
}

class Machine::Layer : public Clock,
                       public Dispatch,
                       public Files,
                       public UserDefaults,
                       public BackgroundTasks,
                       public UuidSource,
                       public LogSink {
 public:
  Layer(Machine& machine, MachineWatcher& watcher) : machine_(machine), watcher_(watcher) {}

  Environment& environment() { return environment_; }

  Date now() override {
    machine_.power.spend();
    return machine_.clock.now();
  }

  void sleep(unsigned seconds) override {
    if (!machine_.power.spend()) return;
    machine_.clock.sleep(seconds);
    watcher_.slept();
  }

  void mainAsync(std::function<void()> task) override {
    if (machine_.power.spend()) machine_.dispatch.mainAsync(std::move(task));
  }

  void mainSync(std::function<void()> task) override {
    if (machine_.power.spend()) watcher_.waitsForMain();
    if (machine_.power.isOff()) machine_.dispatch.dropAll();
    machine_.dispatch.mainSync(std::move(task));
  }

  void globalAsync(std::function<void()> task) override {
    if (machine_.power.spend()) machine_.dispatch.globalAsync(std::move(task));
  }

  std::string applicationSupportPath() override { return machine_.files.applicationSupportPath(); }

  bool exists(const std::string& path) override {
    return machine_.power.spend() && machine_.files.exists(path);
  }

  bool createDirectory(const std::string& path, Error* error) override {
    return machine_.power.spend() && machine_.files.createDirectory(path, error);
  }

  void enumerate(const std::string& path,
                 const std::function<void(const std::string&)>& visit) override {
    if (machine_.power.spend()) machine_.files.enumerate(path, visit);
  }

  bool remove(const std::string& path, Error* error) override {
    return machine_.power.spend() && !machine_.faults.removals &&
           machine_.files.remove(path, error);
  }

  std::optional<std::string> read(const std::string& path, std::size_t limit,
                                  Error* error) override {
    if (!machine_.power.spend() || machine_.faults.reads) {
      fillError(error, {kPosixErrorDomain, EMFILE, {}, {}});
      return std::nullopt;
    }
    return machine_.files.read(path, limit, error);
  }

  bool writeAtomically(const std::string& path, std::string_view bytes, Durability durability,
                       Error* error) override {
    if (!machine_.power.spend()) return false;
    const bool written = !machine_.faults.settingsWrites &&
                         machine_.files.writeAtomically(path, bytes, durability, error);
    if (path == kSettingsFile) watcher_.settingsFileWritten(bytes, written);
    return written;
  }

  std::shared_ptr<AtomicFile> atomicFile(const std::string& path,
                                         const std::string& sparePath) override {
    return std::make_shared<LayeredReportFile>(machine_, watcher_,
                                               machine_.files.atomicFile(path, sparePath));
  }

  bool excludeFromBackup(const std::string& path, Error* error) override {
    return machine_.power.spend() && machine_.files.excludeFromBackup(path, error);
  }

  std::optional<Value> get(const std::string& key, Error* error) override {
    machine_.power.spend();
    return machine_.defaults.get(key, error);
  }

  void set(const std::string& key, Value value) override {
    if (machine_.power.spend()) machine_.defaults.set(key, std::move(value));
  }

  bool synchronize() override {
    if (!machine_.power.spend() || machine_.faults.synchronizing) return false;
    machine_.storedDefaults_ = machine_.defaults.values();
    watcher_.defaultsStored(machine_.storedDefaults_);
    return true;
  }

  bool offersMultitaskingSupport() override { return true; }
  bool offersBegin() override { return true; }
  bool offersEnd() override { return true; }

  BackgroundTaskId begin(std::function<void()> expired) override {
    if (!machine_.power.spend()) return kBackgroundTaskInvalid;
    return machine_.backgroundTasks->begin(std::move(expired));
  }

  void end(BackgroundTaskId id) override {
    if (machine_.power.spend()) machine_.backgroundTasks->end(id);
  }

  double remaining() override {
    // Nobody waits on in a dead process.
    if (!machine_.power.spend()) return 0;
    const double seconds = machine_.backgroundTasks->remaining();
    watcher_.askedRemaining(seconds);
    return seconds;
  }

  std::string next() override {
    return machine_.power.spend() ? machine_.uuids.next() : "of a dead process";
  }

  // Lines are made and go nowhere.
  void write(std::string_view) override {}

 private:
  Machine& machine_;
  MachineWatcher& watcher_;
  Environment environment_{
      *this, *this, machine_.network,           *this, *this, machine_.device, *this,
      *this, *this, machine_.notificationCenter};
};

Machine::Machine(MachineWatcher& watcher)
    : network(power, watcher), layer_(std::make_unique<Layer>(*this, watcher)) {
  backgroundTasks.emplace(dispatch);
}

Machine::~Machine() = default;

Environment& Machine::environment() { return layer_->environment(); }

void Machine::endProcess() {
  power.cut();
  dispatch.dropAll();
  network.forgetOutstanding();
  // Made anew: it records all tasks that it has ever given.
  backgroundTasks.emplace(dispatch);
  std::destroy_at(&notificationCenter);
  std::construct_at(&notificationCenter);
  defaults = FakeDefaults();
  for (const auto& [key, value] : storedDefaults_) defaults.set(key, value);
}

void Machine::loseStorage() {
  files.remove("/support", nullptr);
  storedDefaults_.clear();
  defaults = FakeDefaults();
}

}  // namespace zln::season
