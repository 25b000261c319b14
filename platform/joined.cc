#include "platform/joined.h"

#include <cstddef>

namespace zln {

std::string joined(std::initializer_list<std::string_view> parts) {
  std::size_t length = 0;
  for (const std::string_view part : parts) length += part.size();

  std::string text;
  text.reserve(length);
  for (const std::string_view part : parts) text += part;
  return text;
}

}  // namespace zln
