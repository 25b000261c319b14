#pragma once

#include <gtest/gtest.h>

#include <optional>

#include "platform/device_facts.h"

namespace zln {

// What holds for every device. A machine has `DeviceFacts& facts()`: the application is
// "com.example.game" in version "1.2.3", the library has version "7.0.0" and the country is
// Germany. After `void forget()` none of this is known.
template <typename Machine>
class DeviceFactsContract : public testing::Test {
 protected:
  DeviceFacts& facts() { return machine_.facts(); }
  void forget() { machine_.forget(); }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(DeviceFactsContract);

TYPED_TEST_P(DeviceFactsContract, TheMachineHasAName) { EXPECT_NE("", this->facts().machine()); }

TYPED_TEST_P(DeviceFactsContract, TheSystemHasAVersion) {
  EXPECT_NE("", this->facts().systemVersion());
}

TYPED_TEST_P(DeviceFactsContract, TheApplicationHasAnIdentifier) {
  EXPECT_EQ("com.example.game", this->facts().mainBundleValue("CFBundleIdentifier"));
}

TYPED_TEST_P(DeviceFactsContract, TheApplicationHasAVersion) {
  EXPECT_EQ("1.2.3", this->facts().mainBundleValue("CFBundleShortVersionString"));
}

TYPED_TEST_P(DeviceFactsContract, TheLibraryHasAVersion) {
  EXPECT_EQ("7.0.0", this->facts().libraryBundleValue("CFBundleShortVersionString"));
}

TYPED_TEST_P(DeviceFactsContract, AnUnknownKeyIsAbsent) {
  EXPECT_EQ(std::nullopt, this->facts().mainBundleValue("CFBundleUnknown"));
  EXPECT_EQ(std::nullopt, this->facts().libraryBundleValue("CFBundleUnknown"));
}

TYPED_TEST_P(DeviceFactsContract, TheCountryHasTwoLetters) {
  EXPECT_EQ("DE", this->facts().countryCode());
}

TYPED_TEST_P(DeviceFactsContract, WhatIsNotKnownIsAbsent) {
  this->forget();

  EXPECT_EQ(std::nullopt, this->facts().mainBundleValue("CFBundleIdentifier"));
  EXPECT_EQ(std::nullopt, this->facts().mainBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ(std::nullopt, this->facts().libraryBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ(std::nullopt, this->facts().countryCode());
}

REGISTER_TYPED_TEST_SUITE_P(DeviceFactsContract, TheMachineHasAName, TheSystemHasAVersion,
                            TheApplicationHasAnIdentifier, TheApplicationHasAVersion,
                            TheLibraryHasAVersion, AnUnknownKeyIsAbsent, TheCountryHasTwoLetters,
                            WhatIsNotKnownIsAbsent);

}  // namespace zln
