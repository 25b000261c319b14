#include "platform/posix/uuid_source_posix.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/random.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace zln {

namespace {

using Bytes = std::array<unsigned char, 16>;

// Fills the bytes piece by piece; `readSome` is called as read() is.
template <typename ReadSome>
bool fillWith(std::span<unsigned char> bytes, ReadSome&& readSome) {
  while (!bytes.empty()) {
    const ssize_t count = readSome(bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

bool fillFromDevice(std::span<unsigned char> bytes) {
  const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (device < 0) return false;
  const bool filled = fillWith(
      bytes, [device](void* target, std::size_t size) { return read(device, target, size); });
  close(device);
  return filled;
}

// A bijective scrambling of 64 bits.
std::uint64_t scramble(std::uint64_t bits) {
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9u;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebu;
  return bits ^ (bits >> 31);
}

std::uint64_t nanoseconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000u +
         static_cast<std::uint64_t>(time.tv_nsec);
}

// The random bytes that the kernel gives to every process at its start.
std::array<std::uint64_t, 2> startBytes() {
  std::array<std::uint64_t, 2> words{};
  const auto address = getauxval(AT_RANDOM);
  if (address != 0) std::memcpy(words.data(), reinterpret_cast<const void*>(address), sizeof words);
  return words;
}

// Distinct for each call, process and moment, though not beyond guessing.
Bytes improvisedBytes() {
  static std::atomic<std::uint64_t> calls{0};
  const auto start = startBytes();
  const auto call = calls.fetch_add(1, std::memory_order_relaxed);
  const auto high = scramble(start[0] ^ nanoseconds(CLOCK_REALTIME) ^ scramble(call));
  const auto low = scramble(start[1] ^ nanoseconds(CLOCK_MONOTONIC) ^
                            scramble(static_cast<std::uint64_t>(getpid())) ^ scramble(high ^ call));
  Bytes bytes;
  std::memcpy(bytes.data(), &high, sizeof high);
  std::memcpy(bytes.data() + sizeof high, &low, sizeof low);
  return bytes;
}

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

bool fillFromSystem(std::span<unsigned char> bytes) {
  return fillWith(bytes,
                  [](void* target, std::size_t size) { return getrandom(target, size, 0); }) ||
         fillFromDevice(bytes);
}

UuidSourcePosix::UuidSourcePosix(RandomSource source) : source_(std::move(source)) {}

std::string UuidSourcePosix::next() {
  Bytes bytes{};
  if (!source_(bytes)) bytes = improvisedBytes();
  markAsVersion4(bytes);
  return text(bytes);
}

}  // namespace zln
