#include "support/field.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace zln {
namespace {

TEST(FieldTest, HoldsTheZeroOfItsTypeAtFirst) {
  EXPECT_FALSE(Field<bool>().get());
  EXPECT_EQ(0, Field<std::int32_t>().get());
  EXPECT_EQ(0.0f, Field<float>().get());
  EXPECT_EQ("", Field<std::string>().get());
  EXPECT_EQ(std::nullopt, Field<std::optional<std::string>>().get());
  EXPECT_EQ(nullptr, Field<std::shared_ptr<int>>().get());
}

TEST(FieldTest, HoldsTheValueThatItWasMadeWith) {
  EXPECT_TRUE(Field<bool>(true).get());
  EXPECT_EQ(0.5f, Field<float>(0.5f).get());
  EXPECT_EQ("text", Field<std::string>("text").get());
}

TEST(FieldTest, HoldsTheLastValueThatWasSetAndOneOnceReadStaysAsItIs) {
  Field<std::int32_t> number(1);
  Field<std::optional<std::string>> text;

  number.set(2);
  number.set(-3);
  text.set("before");
  const std::optional<std::string> read = text.get();
  text.set("after");

  EXPECT_EQ(-3, number.get());
  EXPECT_EQ("after", text.get());
  EXPECT_EQ("before", read);

  text.set(std::nullopt);

  EXPECT_EQ(std::nullopt, text.get());
}

TEST(FieldTest, LetsGoOfTheOldValue) {
  Field<std::shared_ptr<int>> field(std::make_shared<int>(1));
  const std::weak_ptr<int> old = field.get();

  field.set(nullptr);

  EXPECT_TRUE(old.expired());
}

TEST(FieldTest, MayBeReadWhileTheOldValueGoes) {
  using Shared = std::shared_ptr<int>;
  Field<Shared> field;
  Shared seen;
  field.set(Shared(new int(1), [&](int* old) {
    delete old;
    seen = field.get();
  }));
  const Shared next = std::make_shared<int>(2);

  field.set(next);

  EXPECT_EQ(next, seen);
}

TEST(FieldTest, NumbersNeedNoLockOtherValuesDo) {
  EXPECT_TRUE(fitsLockFreeAtomic<bool>());
  EXPECT_TRUE(fitsLockFreeAtomic<std::int32_t>());
  EXPECT_TRUE(fitsLockFreeAtomic<std::uint32_t>());
  EXPECT_TRUE(fitsLockFreeAtomic<float>());
  EXPECT_FALSE(fitsLockFreeAtomic<std::string>());
  EXPECT_FALSE(fitsLockFreeAtomic<std::shared_ptr<int>>());
  EXPECT_FALSE(fitsLockFreeAtomic<std::optional<double>>());
}

TEST(FieldTest, ThreadsReadAndReplaceItWhole) {
  const std::string letters(100, 'a');
  const std::string digits(200, '1');
  Field<std::string> field(letters);
  std::latch ready(2);
  int torn = 0;

  std::thread writer([&] {
    ready.arrive_and_wait();
    for (int round = 0; round < 5000; ++round) field.set(round % 2 == 0 ? digits : letters);
  });
  ready.arrive_and_wait();
  for (int round = 0; round < 5000; ++round) {
    const std::string read = field.get();
    if (read != letters && read != digits) ++torn;
  }
  writer.join();

  EXPECT_EQ(0, torn);
}

}  // namespace
}  // namespace zln
