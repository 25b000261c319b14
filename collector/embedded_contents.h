#pragma once

#include <span>

namespace zln::collector {

// A file as the build has put it into the program: the bytes from `begin` to before `end`.
struct EmbeddedContent {
  const char* name;
  const char* begin;
  const char* end;
};

// All of them. The build makes this function.
std::span<const EmbeddedContent> embeddedContents();

}  // namespace zln::collector
