#include "tests/network/process_tally.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace zln {

namespace {

std::size_t entries(const char* folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// A number of kilobytes from the process's status.
std::size_t statusValue(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::size_t value = 0;
    if (word == name + ":" && status >> value) return value;
  }
  return 0;
}

}  // namespace

ProcessTally ProcessTally::now() { return {entries("/proc/self/fd"), entries("/proc/self/task")}; }

std::ostream& operator<<(std::ostream& out, const ProcessTally& tally) {
  return out << tally.descriptors << " descriptors and " << tally.threads << " threads";
}

ProcessTally waitUntilTallyIs(const ProcessTally& before) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (ProcessTally::now() != before && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return ProcessTally::now();
}

MemoryPeak::MemoryPeak() {
  malloc_trim(0);
  // The system begins to look for the peak anew.
  std::ofstream("/proc/self/clear_refs") << "5";
  before_ = statusValue("VmRSS");
}

std::size_t MemoryPeak::kilobytes() const {
  return statusValue("VmHWM") - std::min(before_, statusValue("VmHWM"));
}

}  // namespace zln
