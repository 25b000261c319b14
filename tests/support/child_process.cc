#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tests/support/file_contents.h"

namespace zln {
namespace {

constexpr std::chrono::milliseconds kAnswerTime = kSafetyLimit;
constexpr int kAdd = O_WRONLY | O_CREAT | O_APPEND;

// As the system takes lists of texts.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// What the system says of each thread, which is different once one has run.
std::string threadsOf(pid_t process) {
  std::string threads;
  std::error_code gone;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, gone)) {
    const std::string status = contentsOf(task.path().string() + "/status");
    if (status.find("State:\tS") == std::string::npos) return {};
    threads += status;
  }
  return threads;
}

}  // namespace

ChildProcess::ChildProcess(const ChildStart& start) : errorFile_(start.errorFile) {
  signal(SIGPIPE, SIG_IGN);
  int input[2];
  int output[2];
  if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
    throw std::runtime_error("No pipe");
  }
  std::vector<std::string> words = start.arguments;
  words.insert(words.begin(), start.program);
  std::vector<std::string> variables;
  for (const auto& [name, value] : start.environment) variables.push_back(name + "=" + value);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  if (start.outputFile.empty()) {
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, start.outputFile.c_str(), kAdd, 0600);
  }
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile_.c_str(), kAdd, 0600);
  const int failure = posix_spawn(&pid_, start.program.c_str(), &actions, nullptr,
                                  pointersTo(words).data(), pointersTo(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  input_ = input[1];
  output_ = output[0];
  if (failure != 0) throw std::runtime_error("Cannot start " + start.program);
}

ChildProcess::ChildProcess(const std::string& program,
                           const std::map<std::string, std::string>& environment,
                           const std::string& errorFile)
    : ChildProcess({program, {}, environment, errorFile, {}}) {}

ChildProcess::~ChildProcess() {
  kill();
  close(input_);
  close(output_);
}

std::string ChildProcess::tell(const std::string& line) {
  send(line);
  std::string answer;
  for (std::string next = readLine(); next != "ok"; next = readLine()) answer += next + "\n";
  return answer;
}

void ChildProcess::send(const std::string& line) {
  const std::string bytes = line + "\n";
  if (write(input_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("The program does not listen any more: " + errors());
  }
}

std::string ChildProcess::readLine() {
  while (unread_.find('\n') == std::string::npos) {
    pollfd waiting{output_, POLLIN, 0};
    char bytes[4096];
    if (poll(&waiting, 1, static_cast<int>(kAnswerTime.count())) != 1)
      throw std::runtime_error("No answer");
    const ssize_t length = read(output_, bytes, sizeof bytes);
    if (length <= 0) throw std::runtime_error("The program has ended: " + errors());
    unread_.append(bytes, static_cast<std::size_t>(length));
  }
  const std::size_t end = unread_.find('\n');
  std::string line = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  return line;
}

int ChildProcess::waitForEnd(std::chrono::milliseconds patience) {
  if (pid_ < 0) return -1;
  const int handle = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  pollfd ended{handle, POLLIN, 0};
  const bool inTime = poll(&ended, 1, static_cast<int>(patience.count())) == 1;
  close(handle);
  if (!inTime) return -1;
  int status = -1;
  waitpid(std::exchange(pid_, -1), &status, 0);
  return status;
}

void ChildProcess::interrupt() {
  if (pid_ >= 0) ::kill(pid_, SIGINT);
}

void ChildProcess::kill() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(std::exchange(pid_, -1), nullptr, 0);
}

bool ChildProcess::isAtRest() const {
  const std::string threads = threadsOf(pid_);
  return !threads.empty() && threads == threadsOf(pid_);
}

std::string ChildProcess::errors() const { return contentsOf(errorFile_); }

}  // namespace zln
