#pragma once

#include <string>
#include <string_view>

namespace zln {

// Joins with exactly one separator, collapses repeated ones and drops a trailing one: "/x/" and
// "/y/" give "/x/y". An empty component gives `path`, an empty path the component.
std::string appendPathComponent(std::string_view path, std::string_view component);

// The path of the folder that has the item, with the separator at its end.
std::string folderOf(std::string_view path);

}  // namespace zln
