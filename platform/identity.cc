#include "platform/identity.h"

#include <cstdint>

#include "platform/joined.h"
#include "platform/number_text.h"

namespace zln {

std::string addressText(const void* object) {
  std::string text = "0x";
  appendNumber(text, reinterpret_cast<std::uintptr_t>(object), 16);
  return text;
}

std::string identityText(const char* className, const void* object) {
  return joined({"<", className, ": ", addressText(object), ">"});
}

}  // namespace zln
