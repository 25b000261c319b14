#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "tests/support/safety_limit.h"

namespace zln {

// What a program is started with.
struct ChildStart {
  std::string program;
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;  // All of it.
  std::string errorFile;
  std::string outputFile;  // When empty, ChildProcess reads the standard output.
};

// A program that a test runs and talks to: lines go to its standard input, answers come from its
// standard output, its error output is kept in a file.
class ChildProcess {
 public:
  explicit ChildProcess(const ChildStart& start);
  // With exactly the given environment.
  ChildProcess(const std::string& program, const std::map<std::string, std::string>& environment,
               const std::string& errorFile);
  // Kills it if it still runs.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Sends a line and returns all that the program answers up to the line "ok", without it. Throws
  // when the program ends first, or says nothing for kSafetyLimit.
  std::string tell(const std::string& line);
  // Sends a line to which there is no answer.
  void send(const std::string& line);

  // The status of the end as waitpid gives it; -1 when the program does not end in time.
  int waitForEnd(std::chrono::milliseconds patience = kSafetyLimit);
  // What Ctrl-C does.
  void interrupt();
  void kill();
  // Whether all its threads slept at one moment.
  bool isAtRest() const;
  // What it has written to its error output so far.
  std::string errors() const;
  pid_t pid() const { return pid_; }

 private:
  std::string readLine();

  std::string errorFile_;
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string unread_;
};

}  // namespace zln
