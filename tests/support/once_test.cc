#include "support/once.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <latch>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace zln {
namespace {

TEST(OnceTest, GivesTheFirstObjectEverAfterWhichIsMadeOnTheFirstUse) {
  int made = 0;
  const auto make = [&] { return std::make_shared<int>(++made); };
  Once<int> once;

  EXPECT_EQ(0, made);

  const auto first = once.get(make);

  EXPECT_EQ(1, *first);
  EXPECT_EQ(first, once.get(make));
  EXPECT_EQ(1, made);
}

TEST(OnceTest, AsksTheFactoryOnceEvenWhenItMakesNothing) {
  Once<int> once;

  const auto first = once.get([] { return std::shared_ptr<int>(); });
  const auto second = once.get([] { return std::make_shared<int>(2); });

  EXPECT_EQ(nullptr, first);
  EXPECT_EQ(nullptr, second);
}

TEST(OnceTest, OwnsTheObjectAsLongAsItLives) {
  std::optional<Once<int>> once(std::in_place);
  const std::weak_ptr<int> object = once->get([] { return std::make_shared<int>(1); });

  ASSERT_FALSE(object.expired());

  once.reset();

  EXPECT_TRUE(object.expired());
}

TEST(OnceTest, ThreadsThatAskAtTheSameTimeShareOneObject) {
  Once<int> once;
  std::latch ready(4);
  std::atomic<int> made{0};
  std::array<std::shared_ptr<int>, 4> objects;
  std::vector<std::thread> threads;

  for (auto& object : objects) {
    threads.emplace_back([&] {
      ready.arrive_and_wait();
      object = once.get([&] { return std::make_shared<int>(++made); });
    });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(1, made);
  for (const auto& object : objects) EXPECT_EQ(objects[0], object);
}

}  // namespace
}  // namespace zln
