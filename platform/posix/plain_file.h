#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace zln {

// The whole content of a regular file; absent when the path leads to anything else, the file cannot
// be read or holds more than `limit` bytes. Never waits for another program.
std::optional<std::string> readPlainFile(const std::string& path, std::size_t limit);

}  // namespace zln
