#include "platform/posix/binary_property_list.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "platform/utf8.h"

namespace zln::property_list {
namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerLength = 32;
constexpr double kSecondsFrom1970To2001 = 978307200;

// Objects may be referred to many times, so a small file can stand for endless values. This bounds
// what reading makes of it: so much for each byte, but never less and never more than this.
constexpr std::size_t kExpansionPerByte = 256;
constexpr std::size_t kSmallestLimit = std::size_t{1} << 20;
constexpr std::size_t kLargestLimit = std::size_t{64} << 20;

// The upper half of the byte that begins an object.
enum Marker : unsigned {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kArray = 0xA,
  kDictionary = 0xD,
};

constexpr unsigned kFalse = 0x8;
constexpr unsigned kTrue = 0x9;
constexpr unsigned kLongCount = 0xF;

std::uint64_t unsignedFrom(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

Number numberFrom(std::uint64_t value) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  return value <= kLargest ? Number::int64(static_cast<std::int64_t>(value))
                           : Number::float64(static_cast<double>(value));
}

std::optional<double> realFrom(std::string_view bytes) {
  const std::uint64_t bits = unsignedFrom(bytes);
  if (bytes.size() == 8) return std::bit_cast<double>(bits);
  if (bytes.size() == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
  return std::nullopt;
}

std::string textFromUtf16(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() / 2);
  while (!bytes.empty()) {
    auto codePoint = static_cast<char32_t>(unsignedFrom(bytes.substr(0, 2)));
    bytes.remove_prefix(2);
    if (codePoint >= 0xD800 && codePoint <= 0xDBFF && !bytes.empty()) {
      const auto low = static_cast<char32_t>(unsignedFrom(bytes.substr(0, 2)));
      if (low >= 0xDC00 && low <= 0xDFFF) {
        codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (low - 0xDC00);
        bytes.remove_prefix(2);
      }
    }
    appendUtf8(text, codePoint);
  }
  return text;
}

class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, int deepestLevel)
      : bytes_(bytes),
        deepestLevel_(deepestLevel),
        unspent_(std::clamp(bytes.size(), kSmallestLimit / kExpansionPerByte,
                            kLargestLimit / kExpansionPerByte) *
                 kExpansionPerByte) {}

  std::optional<Value> read() {
    if (!readTrailer()) return std::nullopt;
    return readObject(topObject_, 0);
  }

 private:
  // What stands after the byte that begins an object.
  struct Head {
    unsigned marker;
    unsigned detail;
    std::size_t contentOffset;
  };

  // A run of elements: how many, and where the first one lies.
  struct Run {
    std::size_t count;
    std::size_t offset;
  };

  bool readTrailer() {
    if (bytes_.size() < kMagic.size() + kTrailerLength) return false;
    const std::size_t trailer = bytes_.size() - kTrailerLength;
    objects_ = bytes_.substr(0, trailer);
    offsetSize_ = static_cast<unsigned char>(bytes_[trailer + 6]);
    referenceSize_ = static_cast<unsigned char>(bytes_[trailer + 7]);
    objectCount_ = unsignedFrom(bytes_.substr(trailer + 8, 8));
    topObject_ = unsignedFrom(bytes_.substr(trailer + 16, 8));
    tableOffset_ = unsignedFrom(bytes_.substr(trailer + 24, 8));
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      return false;
    }
    if (tableOffset_ < kMagic.size() || tableOffset_ > trailer) return false;
    return objectCount_ <= (trailer - tableOffset_) / offsetSize_;
  }

  // The bytes at a place, absent when they do not lie whole before the offset table.
  std::optional<std::string_view> slice(std::size_t offset, std::size_t length) const {
    if (offset > tableOffset_ || length > tableOffset_ - offset) return std::nullopt;
    return objects_.substr(offset, length);
  }

  std::optional<std::string_view> slice(const Run& run, std::size_t elementSize) const {
    if (run.count > tableOffset_ / elementSize) return std::nullopt;
    return slice(run.offset, run.count * elementSize);
  }

  std::optional<Head> headOf(std::uint64_t object) const {
    if (object >= objectCount_) return std::nullopt;
    const std::size_t entry = tableOffset_ + object * offsetSize_;
    const std::uint64_t offset = unsignedFrom(objects_.substr(entry, offsetSize_));
    if (offset < kMagic.size() || offset >= tableOffset_) return std::nullopt;
    const unsigned byte = static_cast<unsigned char>(objects_[offset]);
    return Head{byte >> 4, byte & 0xF, offset + 1};
  }

  // A small count stands in the first byte, a larger one in an integer after it.
  std::optional<Run> runOf(const Head& head) const {
    if (head.detail != kLongCount) return Run{head.detail, head.contentOffset};
    const auto first = slice(head.contentOffset, 1);
    if (!first) return std::nullopt;
    const auto byte = static_cast<unsigned char>(first->front());
    if (byte >> 4 != kInteger || (byte & 0xF) > 3) return std::nullopt;
    const std::size_t size = std::size_t{1} << (byte & 0xF);
    const auto count = slice(head.contentOffset + 1, size);
    if (!count) return std::nullopt;
    return Run{unsignedFrom(*count), head.contentOffset + 1 + size};
  }

  // False when more has been made of the file than is allowed.
  bool spend(std::size_t size) {
    if (size > unspent_) return false;
    unspent_ -= size;
    return true;
  }

  std::optional<Value> readObject(std::uint64_t object, int level) {
    const std::optional<Head> head = headOf(object);
    if (!head || !spend(sizeof(Value))) return std::nullopt;
    switch (head->marker) {
      case kSimple:
        return readBoolean(*head);
      case kInteger:
        return readInteger(*head);
      case kReal:
        return readReal(*head);
      case kDate:
        return readDate(*head);
      case kData:
      case kAscii:
      case kUtf16:
        return readBytes(*head);
      case kArray:
        return level < deepestLevel_ ? readArray(*head, level + 1) : std::nullopt;
      case kDictionary:
        return level < deepestLevel_ ? readDictionary(*head, level + 1) : std::nullopt;
      default:
        return std::nullopt;
    }
  }

  static std::optional<Value> readBoolean(const Head& head) {
    if (head.detail != kFalse && head.detail != kTrue) return std::nullopt;
    return Number::boolean(head.detail == kTrue);
  }

  // Up to four bytes are unsigned, eight are signed, sixteen hold what eight cannot.
  std::optional<Value> readInteger(const Head& head) const {
    if (head.detail > 4) return std::nullopt;
    const auto bytes = slice(head.contentOffset, std::size_t{1} << head.detail);
    if (!bytes) return std::nullopt;
    if (head.detail == 4) {
      if (unsignedFrom(bytes->substr(0, 8)) != 0) return std::nullopt;
      return numberFrom(unsignedFrom(bytes->substr(8)));
    }
    return Number::int64(static_cast<std::int64_t>(unsignedFrom(*bytes)));
  }

  std::optional<Value> readReal(const Head& head) const {
    const auto bytes = slice(head.contentOffset, std::size_t{1} << head.detail);
    const std::optional<double> real = bytes ? realFrom(*bytes) : std::nullopt;
    if (!real) return std::nullopt;
    return Number::float64(*real);
  }

  std::optional<Value> readDate(const Head& head) const {
    const auto bytes = slice(head.contentOffset, 8);
    if (head.detail != 3 || !bytes) return std::nullopt;
    const auto seconds = std::bit_cast<double>(unsignedFrom(*bytes));
    if (!std::isfinite(seconds)) return std::nullopt;
    return Date{seconds + kSecondsFrom1970To2001};
  }

  std::optional<Value> readBytes(const Head& head) {
    const std::optional<Run> run = runOf(head);
    const auto bytes = run ? slice(*run, head.marker == kUtf16 ? 2 : 1) : std::nullopt;
    if (!bytes || !spend(bytes->size())) return std::nullopt;
    if (head.marker == kData) return Data{std::string(*bytes)};
    if (head.marker == kUtf16) return textFromUtf16(*bytes);
    for (const char byte : *bytes) {
      if (static_cast<unsigned char>(byte) >= 0x80) return std::nullopt;
    }
    return std::string(*bytes);
  }

  std::uint64_t referenceAt(std::string_view references, std::size_t index) const {
    return unsignedFrom(references.substr(index * referenceSize_, referenceSize_));
  }

  std::optional<Value> readArray(const Head& head, int level) {
    const std::optional<Run> run = runOf(head);
    const auto references = run ? slice(*run, referenceSize_) : std::nullopt;
    if (!references) return std::nullopt;
    Array array;
    for (std::size_t index = 0; index < run->count; ++index) {
      std::optional<Value> element = readObject(referenceAt(*references, index), level);
      if (!element) return std::nullopt;
      array.push_back(*std::move(element));
    }
    return array;
  }

  // All keys come first, then all values.
  std::optional<Value> readDictionary(const Head& head, int level) {
    const std::optional<Run> run = runOf(head);
    const auto references = run ? slice(*run, referenceSize_ * 2) : std::nullopt;
    if (!references) return std::nullopt;
    std::vector<Dictionary::Entry> entries;
    for (std::size_t index = 0; index < run->count; ++index) {
      const std::optional<Value> key = readObject(referenceAt(*references, index), level);
      if (!key || key->string() == nullptr) return std::nullopt;
      std::optional<Value> value = readObject(referenceAt(*references, run->count + index), level);
      if (!value) return std::nullopt;
      entries.emplace_back(*key->string(), *std::move(value));
    }
    return Dictionary::fromEntries(std::move(entries), Dictionary::Repeated::lastCounts);
  }

  std::string_view bytes_;
  std::string_view objects_;
  int deepestLevel_;
  std::size_t unspent_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
  std::size_t tableOffset_ = 0;
};

}  // namespace

bool isBinary(std::string_view bytes) { return bytes.starts_with(kMagic); }

std::optional<Value> readBinary(std::string_view bytes, int deepestLevel) {
  return BinaryReader(bytes, deepestLevel).read();
}

}  // namespace zln::property_list
