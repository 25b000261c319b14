#include "collector/printable_text.h"

#include <cstddef>

namespace zln::collector {
namespace {

constexpr std::size_t kLongestText = 60;

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7F; }

// The part of a UTF-8 text that fits, with no character cut in two.
std::string_view clip(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && (static_cast<unsigned char>(text[longest]) & 0xC0) == 0x80) --longest;
  return text.substr(0, longest);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown(clip(text, kLongestText));
  for (char& c : shown) {
    if (isControl(static_cast<unsigned char>(c))) c = '.';
  }
  return shown.size() < text.size() ? shown + "..." : shown;
}

}  // namespace zln::collector
