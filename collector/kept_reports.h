#pragma once

#include <cstdint>
#include <deque>

namespace zln::collector {

// How much a store keeps.
struct KeepLimits {
  std::int64_t reports = 100000;
  std::int64_t bytes = std::int64_t{1024} * 1024 * 1024;  // Of all bodies together.
};

// Tells which reports stay: as many of the newest as both limits allow, and the newest one in any
// case. One thread at a time.
class KeptReports {
 public:
  explicit KeptReports(const KeepLimits& limits) : limits_(limits) {}

  // A report with a body of so many bytes has come. The identifiers must grow.
  void take(std::int64_t id, std::int64_t size);
  void forgetAll();
  // The last report that does not stay, with all before it; 0 when all stay.
  std::int64_t lastGone() const { return lastGone_; }

 private:
  struct Kept {
    std::int64_t id;
    std::int64_t size;
  };

  bool areTooMany() const;

  const KeepLimits limits_;
  std::deque<Kept> kept_;
  std::int64_t bytes_ = 0;
  std::int64_t lastGone_ = 0;
};

}  // namespace zln::collector
