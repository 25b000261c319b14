#include "platform/property_list.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "platform/calendar.h"
#include "platform/number_text.h"
#include "platform/utf8.h"

namespace zln::property_list {

const std::string_view kDocumentHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
const std::string_view kDocumentTail = "</plist>\n";

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

constexpr int kRealDigits = 17;

// Lines of base64 are this long, less the columns that their tabs take, but never empty.
constexpr int kDataColumns = 76;
constexpr int kColumnsPerTab = 8;
constexpr int kFewestDataColumns = 12;

void appendIndent(std::string& out, int level) {
  out.append(static_cast<std::size_t>(level), '\t');
}

// Bytes that stand for themselves in XML; all others need a look.
constexpr std::array<bool, 256> plainBytes() {
  std::array<bool, 256> plain{};
  for (std::size_t byte = 0x20; byte < 0x80; ++byte) plain[byte] = true;
  plain['\t'] = plain['\n'] = true;
  plain['&'] = plain['<'] = plain['>'] = false;
  return plain;
}

constexpr std::array<bool, 256> kIsPlain = plainBytes();

bool isPlain(char c) { return kIsPlain[static_cast<unsigned char>(c)]; }

// Appends the character at the start of `text` and returns its length.
std::size_t appendSpecial(std::string& out, std::string_view text) {
  switch (text.front()) {
    case '&':
      out += "&amp;";
      return 1;
    case '<':
      out += "&lt;";
      return 1;
    case '>':
      out += "&gt;";
      return 1;
    case '\r':
      out += "&#13;";  // A bare one would be read back as a line feed.
      return 1;
    default:
      break;
  }
  const Utf8Character character = firstCharacter(text);
  const bool isHeldByXml = character.wellFormed && character.codePoint >= 0x80 &&
                           character.codePoint != 0xFFFE && character.codePoint != 0xFFFF;
  out += isHeldByXml ? text.substr(0, character.length) : kReplacement;
  return character.length;
}

void appendText(std::string& out, std::string_view text) {
  while (!text.empty()) {
    std::size_t length = 0;
    while (length < text.size() && isPlain(text[length])) ++length;
    out += text.substr(0, length);
    text.remove_prefix(length);
    if (!text.empty()) text.remove_prefix(appendSpecial(out, text));
  }
}

void appendReal(std::string& out, double real) {
  if (std::isnan(real)) {
    out += "nan";
  } else if (std::isinf(real)) {
    out += real > 0 ? "+infinity" : "-infinity";
  } else if (real == 0) {
    out += "0.0";
  } else {
    appendNumber(out, real, std::chars_format::general, kRealDigits);
  }
}

void appendNumberElement(std::string& out, const Number& number) {
  if (number.isBoolean()) {
    out += number.boolValue() ? "<true/>\n" : "<false/>\n";
  } else if (number.isReal()) {
    out += "<real>";
    appendReal(out, number.doubleValue());
    out += "</real>\n";
  } else {
    out += "<integer>";
    appendNumber(out, number.longValue());
    out += "</integer>\n";
  }
}

// Dates that no reader would take become the nearest one that it does.
std::int64_t writableSeconds(const Date& date) {
  constexpr double kFirst = static_cast<double>(kStartOfYear1);
  constexpr double kLast = static_cast<double>(kStartOfYear10000 - 1);
  const double seconds = std::floor(date.secondsSince1970);
  if (!(seconds > kFirst)) return kStartOfYear1;
  return static_cast<std::int64_t>(std::min(seconds, kLast));
}

void appendDateElement(std::string& out, const Date& date) {
  out += "<date>";
  CalendarTime::fromSeconds(writableSeconds(date)).appendTo(out, 'T');
  out += "Z</date>\n";
}

void appendBase64(std::string& out, std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    unsigned group = 0;
    for (std::size_t index = 0; index < 3; ++index) {
      group = group << 8 | (index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0u);
    }
    out += kDigits[group >> 18];
    out += kDigits[group >> 12 & 63];
    out += bytes.size() > 1 ? kDigits[group >> 6 & 63] : '=';
    out += bytes.size() > 2 ? kDigits[group & 63] : '=';
  }
}

void appendDataElement(std::string& out, std::string_view bytes, int level) {
  const int columns = std::max(kDataColumns - kColumnsPerTab * level, kFewestDataColumns);
  const auto bytesPerLine = static_cast<std::size_t>(columns) / 4 * 3;
  out += "<data>\n";
  while (!bytes.empty()) {
    const std::string_view line = bytes.substr(0, bytesPerLine);
    appendIndent(out, level);
    appendBase64(out, line);
    out += '\n';
    bytes.remove_prefix(line.size());
  }
  appendIndent(out, level);
  out += "</data>\n";
}

bool appendIndented(std::string& out, const Value& value, int level);

bool appendArrayElement(std::string& out, const Array& array, int level) {
  if (array.empty()) {
    out += "<array/>\n";
    return true;
  }
  out += "<array>\n";
  for (const Value& element : array) {
    if (!appendIndented(out, element, level + 1)) return false;
  }
  appendIndent(out, level);
  out += "</array>\n";
  return true;
}

bool appendDictionaryElement(std::string& out, const Dictionary& dictionary, int level) {
  if (dictionary.empty()) {
    out += "<dict/>\n";
    return true;
  }
  out += "<dict>\n";
  for (const auto* entry : dictionary.sortedEntries()) {
    appendIndent(out, level + 1);
    out += "<key>";
    appendText(out, entry->first);
    out += "</key>\n";
    if (!appendIndented(out, entry->second, level + 1)) return false;
  }
  appendIndent(out, level);
  out += "</dict>\n";
  return true;
}

// False when a null is found; what was appended before it is left to the caller to drop.
bool appendIndented(std::string& out, const Value& value, int level) {
  if (value.isNull()) return false;
  appendIndent(out, level);
  if (const Array* array = value.array()) return appendArrayElement(out, *array, level);
  if (const Dictionary* dictionary = value.dictionary()) {
    return appendDictionaryElement(out, *dictionary, level);
  }

  if (const std::string* text = value.string()) {
    out += "<string>";
    appendText(out, *text);
    out += "</string>\n";
  } else if (const Number* number = value.number()) {
    appendNumberElement(out, *number);
  } else if (const Date* date = value.date()) {
    appendDateElement(out, *date);
  } else if (const Data* data = value.data()) {
    appendDataElement(out, data->bytes, level);
  }
  return true;
}

}  // namespace

bool appendElement(std::string& out, const Value& value, int level) {
  const std::size_t length = out.size();
  const bool isWritten = appendIndented(out, value, level);
  if (!isWritten) out.resize(length);
  return isWritten;
}

bool appendElement(std::string& out, const Dictionary& dictionary, int level) {
  const std::size_t length = out.size();
  appendIndent(out, level);
  const bool isWritten = appendDictionaryElement(out, dictionary, level);
  if (!isWritten) out.resize(length);
  return isWritten;
}

std::optional<std::string> write(const Value& root) {
  std::string document(kDocumentHead);
  if (!appendElement(document, root, 0)) return std::nullopt;
  document += kDocumentTail;
  return document;
}

}  // namespace zln::property_list
