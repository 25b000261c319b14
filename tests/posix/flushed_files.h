#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zln {

// The program's fsync() only keeps the path that each file has at that moment; nothing here has to
// outlive a power cut.
extern std::vector<std::string> flushedFiles;
// Makes it fail.
extern bool isDiskBroken;
// Runs once, during the next fsync().
extern std::function<void()> whileFlushing;

}  // namespace zln
