#include "platform/posix/device_facts_posix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/personality.h>
#include <sys/utsname.h>

#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/posix/variable_lookup_in.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

class DeviceFactsPosixTest : public testing::Test {
 protected:
  std::optional<std::string> countryWith(Variables variables) {
    return DeviceFactsPosix(application, {.libraryVersion = "", .variable = lookupIn(variables)})
        .countryCode();
  }

  std::string put(const std::string& name, const std::string& content) {
    std::ofstream(folder.path() + "/" + name, std::ios::binary) << content;
    return folder.path() + "/" + name;
  }

  std::string versionFrom(std::vector<std::string> releaseFiles) {
    return DeviceFactsPosix(application,
                            {.libraryVersion = "", .releaseFiles = std::move(releaseFiles)})
        .systemVersion();
  }

  std::string kernelRelease() {
    utsname names{};
    uname(&names);
    return names.release;
  }

  TemporaryFolder folder;
  ApplicationInfo application;
};

// The kernel names another machine to a program that asks for that of 32 bits.
TEST_F(DeviceFactsPosixTest, TheMachineIsThatOfTheKernelAtTheMomentOfAsking) {
  DeviceFactsPosix facts(application, {.libraryVersion = ""});
  utsname before{};
  uname(&before);
  EXPECT_EQ(before.machine, facts.machine());

  const int personalityBefore = personality(PER_LINUX32);
  utsname after{};
  uname(&after);
  const std::string machine = facts.machine();
  personality(static_cast<unsigned long>(personalityBefore));

  EXPECT_EQ(after.machine, machine);
  if (std::string_view(before.machine) == after.machine) GTEST_SKIP() << "the same for 32 bits";
}

TEST_F(DeviceFactsPosixTest, TheFirstReleaseFileThatIsThereCounts) {
  const auto first = put("first", "VERSION_ID=1\n");
  const auto second = put("second", "VERSION_ID=2\n");

  EXPECT_EQ("1", versionFrom({first, second}));
  EXPECT_EQ("2", versionFrom({folder.path() + "/missing", second}));
}

TEST_F(DeviceFactsPosixTest, WithoutAVersionInAReleaseFileTheKernelNamesIt) {
  EXPECT_EQ(kernelRelease(), versionFrom({}));
  EXPECT_EQ(kernelRelease(), versionFrom({put("none", "ID=debian\nXVERSION_ID=3\n")}));
  EXPECT_EQ(kernelRelease(), versionFrom({put("empty", "VERSION_ID=\"\"\n")}));
  EXPECT_EQ(kernelRelease(),
            versionFrom({put("large", "VERSION_ID=1\n" + std::string(65536, '#'))}));
}

TEST_F(DeviceFactsPosixTest, TheVersionIsReadAsAShellWould) {
  const std::pair<const char*, const char*> rows[] = {
      {"VERSION_ID=12", "12"},
      {"VERSION_ID=\"12\"\n", "12"},
      {"VERSION_ID='22.04'\n", "22.04"},
      {"NAME=\"A\"\nVERSION_ID=\"3\"\nID=a\n", "3"},
      {"  VERSION_ID=12 \r\n", "12"},
      {"VERSION_ID=1\nVERSION_ID=2\n", "2"},
      {"VERSION_ID=\"1\\\"2\"\n", "1\"2"},
      {"VERSION_ID='1\\2'\n", "1\\2"},
      {"VERSION_ID=\"\n", "\""},
      {"\n\n#VERSION_ID=1\nVERSION_ID=2", "2"},
      // Invalid UTF-8 is replaced.
      {"VERSION_ID=1\xff\n", "1\xEF\xBF\xBD"},
  };
  for (const auto& [content, version] : rows) {
    EXPECT_EQ(version, versionFrom({put("release", content)})) << content;
  }
}

TEST_F(DeviceFactsPosixTest, TheFirstVariableThatIsSetNamesTheCountry) {
  EXPECT_EQ("AT", countryWith({{"LC_ALL", "de_AT"}, {"LC_MESSAGES", "de_CH"}, {"LANG", "de_DE"}}));
  EXPECT_EQ("CH", countryWith({{"LC_MESSAGES", "de_CH"}, {"LANG", "de_DE"}}));
  EXPECT_EQ("DE", countryWith({{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "de_DE"}}));
  EXPECT_EQ(std::nullopt, countryWith({{"LC_ALL", "C"}, {"LANG", "de_DE"}}));
}

TEST_F(DeviceFactsPosixTest, TheCountryIsTheRegionOfTheLocale) {
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"en_US.UTF-8", "US"},
      {"de_AT@euro", "AT"},
      {"de_AT.ISO-8859-15@euro", "AT"},
      {"es_419", "419"},
      {"C", {}},
      {"C.UTF-8", {}},
      {"POSIX", {}},
      {"de", {}},
      {"de_", {}},
      {"en_us", {}},
      {"en_USA", {}},
      {"en_41", {}},
      {"en_4I9", {}},
      {"de.a_DE", {}},
      {"zh_Hans_CN", {}},
  };
  for (const auto& [locale, country] : rows) {
    EXPECT_EQ(country, countryWith({{"LANG", locale}})) << locale;
  }
}

}  // namespace
}  // namespace zln
