#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/file_descriptor.h"

namespace zln {

// Each of these sets errno when it fails.

// Opens a regular file for reading; no file when the path leads to anything else. Waits for no
// other program.
FileDescriptor openPlainFile(const std::string& path);

// The rest of an open file; absent when it cannot be read or is more than `limit` bytes.
std::optional<std::string> readToEnd(int file, std::size_t limit);

// Writes the content from the byte `at` on to the same place of the file. False when that fails.
bool writeFrom(int file, std::string_view content, std::size_t at);

// The whole content of a regular file; absent when the path leads to anything else, the file cannot
// be read or holds more than `limit` bytes. Never waits for another program.
std::optional<std::string> readPlainFile(const std::string& path, std::size_t limit);

}  // namespace zln
