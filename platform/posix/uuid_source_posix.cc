#include "platform/posix/uuid_source_posix.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <utility>

#include "platform/posix/file_descriptor.h"

namespace zln {

namespace {

using Bytes = std::array<unsigned char, 16>;

void markAsVersion4(Bytes& bytes) {
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
}

std::string text(const Bytes& bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
    text += kDigits[bytes[index] >> 4];
    text += kDigits[bytes[index] & 0x0f];
  }
  return text;
}

}  // namespace

void fillFromSystem(std::span<unsigned char> bytes) {
  if (getentropy(bytes.data(), bytes.size()) == 0) return;
  const FileDescriptor device(open("/dev/urandom", O_RDONLY | O_CLOEXEC | O_NOCTTY));
  [[maybe_unused]] const ssize_t count = read(device.get(), bytes.data(), bytes.size());
}

UuidSourcePosix::UuidSourcePosix(RandomSource source) : source_(std::move(source)) {}

std::string UuidSourcePosix::next() {
  Bytes bytes{};
  source_(bytes);
  markAsVersion4(bytes);
  return text(bytes);
}

}  // namespace zln
