#pragma once

#include <functional>
#include <span>
#include <string>

#include "platform/uuid_source.h"

namespace zln {

// Fills the bytes from the system's random source; false when there is none.
bool fillFromSystem(std::span<unsigned char> bytes);

class UuidSourcePosix : public UuidSource {
 public:
  using RandomSource = std::function<bool(std::span<unsigned char> bytes)>;

  // Where the source fails, identifiers are made from what tells processes and moments apart.
  explicit UuidSourcePosix(RandomSource source = &fillFromSystem);

  std::string next() override;

 private:
  const RandomSource source_;
};

}  // namespace zln
