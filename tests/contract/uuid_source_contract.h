#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>

#include "platform/uuid_source.h"

namespace zln {

// What holds for every source. A machine has `UuidSource& uuids()`.
template <typename Machine>
class UuidSourceContract : public testing::Test {
 protected:
  UuidSource& uuids() { return machine_.uuids(); }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(UuidSourceContract);

TYPED_TEST_P(UuidSourceContract, AnIdentifierIsAVersion4UuidInUpperCase) {
  EXPECT_THAT(this->uuids().next(),
              testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
                                    "[0-9A-F]{12}"));
}

TYPED_TEST_P(UuidSourceContract, NoIdentifierComesTwice) {
  std::set<std::string> identifiers;

  for (int count = 0; count < 1000; ++count) identifiers.insert(this->uuids().next());

  EXPECT_EQ(std::size_t{1000}, identifiers.size());
}

REGISTER_TYPED_TEST_SUITE_P(UuidSourceContract, AnIdentifierIsAVersion4UuidInUpperCase,
                            NoIdentifierComesTwice);

}  // namespace zln
