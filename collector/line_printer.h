#pragma once

#include <memory>
#include <string_view>
#include <thread>

namespace zln::collector {

// Prints lines on a thread of its own, in the order in which they are given, so that nobody waits
// for a terminal that is stopped or a pipe that is full. While too much waits, lines are left out;
// once it flows again a line says how many. Any thread may call it.
class LinePrinter {
 public:
  // The descriptor must stay open as long as somebody may still read what is printed.
  explicit LinePrinter(int descriptor);
  // Prints what waits, unless that takes more than a moment.
  ~LinePrinter();
  LinePrinter(const LinePrinter&) = delete;
  LinePrinter& operator=(const LinePrinter&) = delete;

  void print(std::string_view line);

 private:
  class Queue;

  const std::shared_ptr<Queue> queue_;
  std::thread thread_;
};

}  // namespace zln::collector
