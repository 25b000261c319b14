#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "tests/contract/contracts.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

TEST_P(ClockContract, TheTimeIsNotBeforeThisCodeWasWritten) {
  EXPECT_GE(machine->clock().now().secondsSince1970, 1700000000.0);
}

TEST_P(ClockContract, SleepBlocksTheThreadForWholeSeconds) {
  const double before = machine->elapsed();

  machine->clock().sleep(1);

  EXPECT_GE(machine->elapsed() - before, 1.0);
}

TEST_P(DeviceFactsContract, TheFactsAreKnown) {
  DeviceFacts& facts = machine->facts();

  EXPECT_NE("", facts.machine());
  EXPECT_NE("", facts.systemVersion());
  EXPECT_EQ("com.example.game", facts.mainBundleValue("CFBundleIdentifier"));
  EXPECT_EQ("1.2.3", facts.mainBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ("7.0.0", facts.libraryBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ("DE", facts.countryCode());
}

TEST_P(DeviceFactsContract, AnUnknownKeyIsAbsent) {
  EXPECT_EQ(std::nullopt, machine->facts().mainBundleValue("CFBundleUnknown"));
  EXPECT_EQ(std::nullopt, machine->facts().libraryBundleValue("CFBundleUnknown"));
}

TEST_P(DeviceFactsContract, WhatIsNotKnownIsAbsent) {
  machine->forget();

  DeviceFacts& facts = machine->facts();
  EXPECT_EQ(std::nullopt, facts.mainBundleValue("CFBundleIdentifier"));
  EXPECT_EQ(std::nullopt, facts.mainBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ(std::nullopt, facts.libraryBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ(std::nullopt, facts.countryCode());
}

TEST_P(LogSinkContract, LinesComeOutWholeInTheOrderOfWriting) {
  sink.write("one");
  sink.write("{\n    a = 1;\n}");
  sink.write("");
  sink.write(std::string_view("line and what follows").substr(0, 4));

  EXPECT_THAT(machine->lines(), ElementsAre("one", "{\n    a = 1;\n}", "", "line"));
}

TEST_P(LogSinkContract, LinesOfSeveralThreadsAllComeOut) {
  std::thread one([this] { sink.write("one"); });
  std::thread two([this] { sink.write("two"); });
  one.join();
  two.join();

  EXPECT_THAT(machine->lines(), UnorderedElementsAre("one", "two"));
}

TEST_P(UserDefaultsContract, AKeyThatWasNeverSetIsAbsent) {
  EXPECT_EQ(std::nullopt, machine->defaults().get("key", nullptr));
}

TEST_P(UserDefaultsContract, TheValueSetLastIsReadByAllThreadsAtOnce) {
  machine->defaults().set("other", "1");
  machine->defaults().set("key", "old");
  machine->defaults().set("key", Number::int64(7));
  std::optional<Value> seen;

  std::thread([&] { seen = machine->defaults().get("key", nullptr); }).join();

  EXPECT_EQ(Value(Number::int64(7)), seen);
  EXPECT_EQ(Value(Number::int64(7)), machine->defaults().get("key", nullptr));
  EXPECT_EQ(Value("1"), machine->defaults().get("other", nullptr));
}

TEST_P(UserDefaultsContract, TheNextProcessReadsWhatWasSetAndKeepsWhatItDoesNotReplace) {
  machine->defaults().set("kept", "grüße <&>");
  EXPECT_TRUE(machine->defaults().synchronize());
  machine->restart();
  machine->defaults().set("new", "2");
  EXPECT_TRUE(machine->defaults().synchronize());
  machine->restart();

  EXPECT_EQ(Value("grüße <&>"), machine->defaults().get("kept", nullptr));
  EXPECT_EQ(Value("2"), machine->defaults().get("new", nullptr));
}

TEST_P(UserDefaultsContract, SynchronizingSucceedsWithNothingSet) {
  EXPECT_TRUE(machine->defaults().synchronize());
}

TEST_P(UuidSourceContract, AnIdentifierIsAVersion4UuidInUpperCase) {
  EXPECT_THAT(machine->uuids().next(),
              MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
}

TEST_P(UuidSourceContract, NoIdentifierComesTwice) {
  std::set<std::string> identifiers;

  for (int count = 0; count < 1000; ++count) identifiers.insert(machine->uuids().next());

  EXPECT_EQ(1000u, identifiers.size());
}

}  // namespace
}  // namespace zln
