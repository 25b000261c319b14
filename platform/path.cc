#include "platform/path.h"

namespace zln {
namespace {

void appendCollapsed(std::string& out, std::string_view part) {
  for (const char byte : part) {
    const bool isRepeated = byte == '/' && !out.empty() && out.back() == '/';
    if (!isRepeated) out += byte;
  }
}

}  // namespace

std::string appendPathComponent(std::string_view path, std::string_view component) {
  std::string joined;
  joined.reserve(path.size() + 1 + component.size());
  appendCollapsed(joined, path);
  if (!path.empty() && !component.empty()) appendCollapsed(joined, "/");
  appendCollapsed(joined, component);

  const bool isRoot = joined == "/";
  if (!isRoot && joined.ends_with('/')) joined.pop_back();
  return joined;
}

std::string folderOf(std::string_view path) {
  return std::string(path.substr(0, path.rfind('/') + 1));
}

}  // namespace zln
