#pragma once

#include <functional>
#include <span>
#include <string>

#include "platform/uuid_source.h"

namespace zln {

// Fills the bytes, no more than 256, from the system's random source: the call, or the device where
// a system forbids the call.
void fillFromSystem(std::span<unsigned char> bytes);

class UuidSourcePosix : public UuidSource {
 public:
  using RandomSource = std::function<void(std::span<unsigned char> bytes)>;

  explicit UuidSourcePosix(RandomSource source = &fillFromSystem);

  std::string next() override;

 private:
  const RandomSource source_;
};

}  // namespace zln
