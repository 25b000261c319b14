#include "platform/utf8.h"

namespace zln {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// What a first byte says of its sequence: how many bytes follow, its share of the code point, and
// between which bounds the second byte lies. The bounds shut out overlong forms, surrogates and
// values above U+10FFFF.
struct Lead {
  int following;
  char32_t bits;
  unsigned char low;
  unsigned char high;
};

Lead leadOf(unsigned char byte) {
  if (byte < 0x80) return {0, byte, 0, 0};
  if (byte < 0xC2) return {-1, 0, 0, 0};
  if (byte < 0xE0) return {1, byte & 0x1Fu, 0x80, 0xBF};
  if (byte == 0xE0) return {2, 0, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x0D, 0x80, 0x9F};
  if (byte < 0xF0) return {2, byte & 0x0Fu, 0x80, 0xBF};
  if (byte == 0xF0) return {3, 0, 0x90, 0xBF};
  if (byte < 0xF4) return {3, byte & 0x07u, 0x80, 0xBF};
  if (byte == 0xF4) return {3, 4, 0x80, 0x8F};
  return {-1, 0, 0, 0};
}

// The place of a first byte in the order of UTF-16, where characters of four bytes are surrogates
// and lie before U+E000.
int codeUnitRank(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  if (value >= 0xF0) return value - 2;
  return value >= 0xEE ? value + 0x10 : value;
}

// How many bytes stand before the first ill-formed sequence.
std::size_t wellFormedLength(std::string_view bytes) {
  std::size_t length = 0;
  while (length < bytes.size()) {
    if (static_cast<unsigned char>(bytes[length]) < 0x80) {
      ++length;
      continue;
    }
    const Utf8Character character = firstCharacter(bytes.substr(length));
    if (!character.wellFormed) break;
    length += character.length;
  }
  return length;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) { return wellFormedLength(bytes) == bytes.size(); }

std::string sanitizedUtf8(std::string_view bytes) {
  std::string mended;
  mended.reserve(bytes.size());
  while (!bytes.empty()) {
    const std::size_t length = wellFormedLength(bytes);
    mended += bytes.substr(0, length);
    bytes.remove_prefix(length);
    if (bytes.empty()) break;
    appendUtf8(mended, kReplacement);
    bytes.remove_prefix(firstCharacter(bytes).length);
  }
  return mended;
}

std::optional<std::string> sanitizedText(const char* text) {
  if (text == nullptr) return std::nullopt;
  return sanitizedUtf8(text);
}

void appendUtf8(std::string& out, char32_t codePoint) {
  const auto push = [&out](char32_t byte) { out += static_cast<char>(byte); };
  const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  if (isSurrogate || codePoint > 0x10FFFF) codePoint = kReplacement;

  if (codePoint < 0x80) {
    push(codePoint);
  } else if (codePoint < 0x800) {
    push(0xC0 | codePoint >> 6);
    push(0x80 | (codePoint & 0x3F));
  } else if (codePoint < 0x10000) {
    push(0xE0 | codePoint >> 12);
    push(0x80 | (codePoint >> 6 & 0x3F));
    push(0x80 | (codePoint & 0x3F));
  } else {
    push(0xF0 | codePoint >> 18);
    push(0x80 | (codePoint >> 12 & 0x3F));
    push(0x80 | (codePoint >> 6 & 0x3F));
    push(0x80 | (codePoint & 0x3F));
  }
}

Utf8Character firstCharacter(std::string_view bytes) {
  const Lead lead = leadOf(static_cast<unsigned char>(bytes[0]));
  if (lead.following < 0) return {kReplacement, 1, false};

  char32_t codePoint = lead.bits;
  unsigned char low = lead.low;
  unsigned char high = lead.high;
  std::size_t length = 1;
  for (int left = lead.following; left > 0; --left, ++length) {
    if (length >= bytes.size()) return {kReplacement, length, false};
    const auto byte = static_cast<unsigned char>(bytes[length]);
    if (byte < low || byte > high) return {kReplacement, length, false};
    codePoint = codePoint << 6 | (byte & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return {codePoint, length, true};
}

bool lessByCodeUnit(std::string_view a, std::string_view b) {
  const std::size_t common = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t at = 0; at < common; ++at) {
    if (a[at] != b[at]) return codeUnitRank(a[at]) < codeUnitRank(b[at]);
  }
  return a.size() < b.size();
}

}  // namespace zln
