#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "platform/user_defaults.h"

namespace zln {

// What holds for every store. A machine has `UserDefaults& defaults()` and `void restart()`, after
// which defaults() is the next process on the same installation.
template <typename Machine>
class UserDefaultsContract : public testing::Test {
 protected:
  UserDefaults& defaults() { return machine_.defaults(); }
  void restart() { machine_.restart(); }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(UserDefaultsContract);

TYPED_TEST_P(UserDefaultsContract, AKeyThatWasNeverSetIsAbsent) {
  EXPECT_EQ(std::nullopt, this->defaults().get("key"));
}

TYPED_TEST_P(UserDefaultsContract, AValueReadsAtOnce) {
  this->defaults().set("key", "text");

  EXPECT_EQ(Value("text"), this->defaults().get("key"));
}

TYPED_TEST_P(UserDefaultsContract, AnotherThreadReadsAValueAtOnce) {
  this->defaults().set("key", "text");
  std::optional<Value> seen;

  std::thread([&] { seen = this->defaults().get("key"); }).join();

  EXPECT_EQ(Value("text"), seen);
}

TYPED_TEST_P(UserDefaultsContract, ALaterValueReplacesAnEarlierOne) {
  this->defaults().set("key", "old");
  this->defaults().set("key", Number::int64(7));

  EXPECT_EQ(Value(Number::int64(7)), this->defaults().get("key"));
}

TYPED_TEST_P(UserDefaultsContract, KeysAreIndependent) {
  this->defaults().set("one", "1");
  this->defaults().set("two", "2");

  EXPECT_EQ(Value("1"), this->defaults().get("one"));
  EXPECT_EQ(Value("2"), this->defaults().get("two"));
}

TYPED_TEST_P(UserDefaultsContract, TheNextProcessReadsWhatWasSet) {
  this->defaults().set("key", "grüße <&>");
  this->restart();

  EXPECT_EQ(Value("grüße <&>"), this->defaults().get("key"));
}

TYPED_TEST_P(UserDefaultsContract, TheNextProcessKeepsWhatItDoesNotReplace) {
  this->defaults().set("kept", "1");
  this->restart();
  this->defaults().set("new", "2");
  this->restart();

  EXPECT_EQ(Value("1"), this->defaults().get("kept"));
  EXPECT_EQ(Value("2"), this->defaults().get("new"));
}

TYPED_TEST_P(UserDefaultsContract, SynchronizingSucceedsWithNothingSet) {
  EXPECT_TRUE(this->defaults().synchronize());
}

TYPED_TEST_P(UserDefaultsContract, SynchronizingSucceedsAfterASet) {
  this->defaults().set("key", "text");

  EXPECT_TRUE(this->defaults().synchronize());
}

REGISTER_TYPED_TEST_SUITE_P(UserDefaultsContract, AKeyThatWasNeverSetIsAbsent, AValueReadsAtOnce,
                            AnotherThreadReadsAValueAtOnce, ALaterValueReplacesAnEarlierOne,
                            KeysAreIndependent, TheNextProcessReadsWhatWasSet,
                            TheNextProcessKeepsWhatItDoesNotReplace,
                            SynchronizingSucceedsWithNothingSet, SynchronizingSucceedsAfterASet);

}  // namespace zln
