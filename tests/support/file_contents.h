#pragma once

#include <functional>
#include <string>

namespace zln {

// Empty when there is no such file.
std::string contentsOf(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

// Waits until the file, whose folder exists, has such contents. False after kSafetyLimit.
bool awaitContents(const std::string& path,
                   const std::function<bool(const std::string& contents)>& isWanted);

}  // namespace zln
