#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

namespace zln::collector {

enum class ExportFormat {
  kJsonLines,  // One row a line, as the interface for programs shows it.
  kCsv,        // RFC 4180, with a header; bodies as they came.
};

// Gives all reports of a database to `write` piece by piece, the oldest first, until it answers
// false. A collector may have the database open; what it takes in meanwhile is left out. Throws
// std::runtime_error with a text for people when the database cannot be read.
void exportReports(const std::filesystem::path& file, ExportFormat format,
                   const std::function<bool(std::string_view)>& write);

}  // namespace zln::collector
