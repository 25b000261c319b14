#pragma once

#include <cstddef>
#include <ostream>

namespace zln {

// What this process has of what the system counts.
struct ProcessTally {
  std::size_t descriptors = 0;
  std::size_t threads = 0;

  static ProcessTally now();
  bool operator==(const ProcessTally&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ProcessTally& tally);

// Waits until the process has what it had then. The last it had, when that takes a minute.
ProcessTally waitUntilTallyIs(const ProcessTally& before);

// The most memory that the process has had since the object was made, above what it had then.
class MemoryPeak {
 public:
  MemoryPeak();
  std::size_t kilobytes() const;

 private:
  std::size_t before_;
};

}  // namespace zln
