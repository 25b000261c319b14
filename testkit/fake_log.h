#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/log_sink.h"
#include "testkit/journal.h"

namespace zln {

// Keeps the lines written. Any thread may call it.
class FakeLog : public LogSink {
 public:
  explicit FakeLog(Journal* journal = nullptr) : journal_(journal) {}

  void write(std::string_view line) override;

  std::vector<std::string> lines() const;
  void clear();
  // Whether, and how often, exactly this line was written.
  bool contains(std::string_view line) const;
  std::size_t count(std::string_view line) const;

 private:
  Journal* const journal_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace zln
