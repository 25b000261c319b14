#pragma once

#include <fcntl.h>

#include <string>
#include <vector>

namespace zln {

// How a folder is opened: neither a symbolic link nor anything else in its place, and never
// waiting.
inline constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

// The names in an open folder without "." and "..", in the file system's order. Empty when it
// cannot be listed.
std::vector<std::string> namesIn(int folder);

}  // namespace zln
