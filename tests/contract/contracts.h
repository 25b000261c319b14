#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/background_tasks.h"
#include "platform/clock.h"
#include "platform/device_facts.h"
#include "platform/dispatch.h"
#include "platform/files.h"
#include "platform/log_sink.h"
#include "platform/user_defaults.h"
#include "platform/uuid_source.h"

namespace zln {

// How a suite gets a machine for each of its tests.
template <typename Machine>
struct MachineMaker {
  const char* name;
  std::unique_ptr<Machine> (*make)();

  friend std::ostream& operator<<(std::ostream& out, const MachineMaker& maker) {
    return out << maker.name;
  }
};

template <typename Machine, typename Made>
MachineMaker<Machine> makerOf(const char* name) {
  return {name, []() -> std::unique_ptr<Machine> { return std::make_unique<Made>(); }};
}

// What holds for every machine of a kind, of the fakes and of each port. This file names the
// suites, *_contract_test.cc hold their tests, *_machines_test.cc run them on machines.
template <typename Machine>
class Contract : public testing::TestWithParam<MachineMaker<Machine>> {
 protected:
  const std::unique_ptr<Machine> machine = this->GetParam().make();
};

// Nothing limits the time of its tasks yet.
struct BackgroundTasksMachine {
  virtual ~BackgroundTasksMachine() = default;
  virtual BackgroundTasks& tasks() = 0;
  // Returns when the task has been told.
  virtual void expire(BackgroundTaskId id) = 0;
};

class BackgroundTasksContract : public Contract<BackgroundTasksMachine> {
 protected:
  // Begins a task that notes its expiry under this name.
  BackgroundTaskId begin(const std::string& name) {
    return tasks.begin([this, name] { told.push_back(name); });
  }

  BackgroundTasks& tasks = machine->tasks();
  std::vector<std::string> told;
};

struct ClockMachine {
  virtual ~ClockMachine() = default;
  virtual Clock& clock() = 0;
  // The seconds since some moment, however the wall clock is set.
  virtual double elapsed() = 0;
};

using ClockContract = Contract<ClockMachine>;

// The application is "com.example.game" in version "1.2.3", the library has version "7.0.0" and the
// country is Germany.
struct DeviceFactsMachine {
  virtual ~DeviceFactsMachine() = default;
  virtual DeviceFacts& facts() = 0;
  // After this none of it is known.
  virtual void forget() = 0;
};

using DeviceFactsContract = Contract<DeviceFactsMachine>;

struct DispatchMachine {
  virtual ~DispatchMachine() = default;
  virtual Dispatch& dispatch() = 0;
  // Lets tasks run until the future is ready.
  virtual void await(std::future<void> done) = 0;
};

class DispatchContract : public Contract<DispatchMachine> {
 protected:
  Dispatch& dispatch = machine->dispatch();
};

struct FilesMachine {
  virtual ~FilesMachine() = default;
  virtual Files& files() = 0;
  // The path of an empty folder of the test's own.
  virtual std::string root() = 0;
  // Another number after each write of the file.
  virtual std::size_t version(const std::string& path) = 0;
};

class FilesContract : public Contract<FilesMachine> {
 protected:
  // Of the files that a test reads.
  static constexpr std::size_t kLimit = 1024;

  std::string path(const std::string& relativePath) { return machine->root() + "/" + relativePath; }
  void makeFolder(const std::string& relativePath);
  void makeFile(const std::string& relativePath, const std::string& bytes);
  std::optional<std::string> read(const std::string& relativePath, std::size_t limit = kLimit);
  std::vector<std::string> visited(const std::string& relativePath = "");

  // Domain, code and text of the error that the operation filled last.
  std::string errorText() const;

  std::shared_ptr<AtomicFile> atomicFile(const std::string& relativePath);
  // Replaces the content of path("file") and expects to read it there.
  void replace(AtomicFile& file, const std::string& content, std::size_t unchangedPrefix = 0);

  Files& files = machine->files();
  Error error;
};

struct LogSinkMachine {
  virtual ~LogSinkMachine() = default;
  virtual LogSink& sink() = 0;
  // The lines that came out at its other end.
  virtual std::vector<std::string> lines() = 0;
};

class LogSinkContract : public Contract<LogSinkMachine> {
 protected:
  LogSink& sink = machine->sink();
};

struct UserDefaultsMachine {
  virtual ~UserDefaultsMachine() = default;
  virtual UserDefaults& defaults() = 0;
  // After this, defaults() is the next process on the same installation.
  virtual void restart() = 0;
};

using UserDefaultsContract = Contract<UserDefaultsMachine>;

struct UuidSourceMachine {
  virtual ~UuidSourceMachine() = default;
  virtual UuidSource& uuids() = 0;
};

using UuidSourceContract = Contract<UuidSourceMachine>;

}  // namespace zln
