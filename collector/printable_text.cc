#include "collector/printable_text.h"

#include <algorithm>
#include <cstddef>

namespace zln::collector {
namespace {

constexpr std::size_t kLongestText = 60;

// How many bytes of a control character the text begins with. U+0080 to U+009F are such, too: some
// terminals take U+009B for the beginning of a command.
std::size_t controlSize(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
  return text.size() > 1 && byte(0) == 0xC2 && byte(1) < 0xA0 ? 2 : 0;
}

// The part of a UTF-8 text that fits, with no character cut in two.
std::string_view clip(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && (static_cast<unsigned char>(text[longest]) & 0xC0) == 0x80) --longest;
  return text.substr(0, longest);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  std::string_view rest = clip(text, kLongestText);
  const bool isWhole = rest.size() == text.size();
  while (!rest.empty()) {
    const std::size_t control = controlSize(rest);
    shown += control > 0 ? '.' : rest.front();
    rest.remove_prefix(std::max<std::size_t>(control, 1));
  }
  return isWhole ? shown : shown + "...";
}

}  // namespace zln::collector
