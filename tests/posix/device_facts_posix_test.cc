#include "platform/posix/device_facts_posix.h"

#include <sys/utsname.h>

#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/contract/device_facts_contract.h"
#include "tests/posix/variable_lookup_in.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

class PosixDevice {
 public:
  PosixDevice() {
    application_.set("com.example.game", "1.2.3");
    facts_ = make({.libraryVersion = "7.0.0", .variable = lookupIn({{"LANG", "de_DE.UTF-8"}})});
  }

  DeviceFacts& facts() { return *facts_; }
  void forget() {
    application_.set(std::nullopt, std::nullopt);
    facts_ = make({.libraryVersion = "", .variable = lookupIn({})});
  }

 private:
  std::unique_ptr<DeviceFacts> make(DeviceFactsPosix::Sources sources) {
    return std::make_unique<DeviceFactsPosix>(application_, std::move(sources));
  }

  ApplicationInfo application_;
  std::unique_ptr<DeviceFacts> facts_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Posix, DeviceFactsContract, PosixDevice);

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

TEST_F(DeviceFactsPosixTest, TheMachineIsThatOfTheKernel) {
  utsname names{};
  uname(&names);

  EXPECT_EQ(names.machine, DeviceFactsPosix(application, {.libraryVersion = ""}).machine());
}

TEST_F(DeviceFactsPosixTest, TheFirstReleaseFileThatIsThereCounts) {
  const auto first = put("first", "VERSION_ID=1\n");
  const auto second = put("second", "VERSION_ID=2\n");

  EXPECT_EQ("1", versionFrom({first, second}));
  EXPECT_EQ("2", versionFrom({folder.path() + "/missing", second}));
}

TEST_F(DeviceFactsPosixTest, AReleaseFileWithoutVersionLeavesItToTheKernel) {
  EXPECT_EQ(kernelRelease(), versionFrom({put("none", "ID=debian\nXVERSION_ID=3\n")}));
  EXPECT_EQ(kernelRelease(), versionFrom({put("empty", "VERSION_ID=\"\"\n")}));
}

TEST_F(DeviceFactsPosixTest, WithoutAReleaseFileTheKernelNamesTheVersion) {
  EXPECT_EQ(kernelRelease(), versionFrom({}));
}

TEST_F(DeviceFactsPosixTest, AReleaseFileThatIsTooLargeIsNotRead) {
  const auto large = put("large", "VERSION_ID=1\n" + std::string(65536, '#'));

  EXPECT_EQ(kernelRelease(), versionFrom({large}));
}

TEST_F(DeviceFactsPosixTest, AVersionThatIsNotUtf8IsMended) {
  EXPECT_EQ("1\xEF\xBF\xBD", versionFrom({put("broken", "VERSION_ID=1\xff\n")}));
}

struct VersionRow {
  const char* content;
  const char* version;
};

class DeviceFactsPosixVersionTest : public DeviceFactsPosixTest,
                                    public testing::WithParamInterface<VersionRow> {};

TEST_P(DeviceFactsPosixVersionTest, TheVersionIsReadAsAShellWould) {
  EXPECT_EQ(GetParam().version, versionFrom({put("release", GetParam().content)}));
}

INSTANTIATE_TEST_SUITE_P(Contents, DeviceFactsPosixVersionTest,
                         testing::Values(VersionRow{"VERSION_ID=12", "12"},
                                         VersionRow{"VERSION_ID=\"12\"\n", "12"},
                                         VersionRow{"VERSION_ID='22.04'\n", "22.04"},
                                         VersionRow{"NAME=\"A\"\nVERSION_ID=\"3\"\nID=a\n", "3"},
                                         VersionRow{"  VERSION_ID=12 \r\n", "12"},
                                         VersionRow{"VERSION_ID=1\nVERSION_ID=2\n", "2"},
                                         VersionRow{"VERSION_ID=\"1\\\"2\"\n", "1\"2"},
                                         VersionRow{"VERSION_ID='1\\2'\n", "1\\2"},
                                         VersionRow{"VERSION_ID=\"\n", "\""},
                                         VersionRow{"\n\n#VERSION_ID=1\nVERSION_ID=2", "2"}));

TEST_F(DeviceFactsPosixTest, TheFirstVariableThatIsSetNamesTheCountry) {
  EXPECT_EQ("AT", countryWith({{"LC_ALL", "de_AT"}, {"LC_MESSAGES", "de_CH"}, {"LANG", "de_DE"}}));
  EXPECT_EQ("CH", countryWith({{"LC_MESSAGES", "de_CH"}, {"LANG", "de_DE"}}));
  EXPECT_EQ("DE", countryWith({{"LANG", "de_DE"}}));
}

TEST_F(DeviceFactsPosixTest, AnEmptyVariableCountsAsNotSet) {
  EXPECT_EQ("DE", countryWith({{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "de_DE"}}));
}

TEST_F(DeviceFactsPosixTest, AVariableWithoutCountryHidesLaterOnes) {
  EXPECT_EQ(std::nullopt, countryWith({{"LC_ALL", "C"}, {"LANG", "de_DE"}}));
}

struct CountryRow {
  const char* locale;
  std::optional<std::string> country;
};

class DeviceFactsPosixCountryTest : public DeviceFactsPosixTest,
                                    public testing::WithParamInterface<CountryRow> {};

TEST_P(DeviceFactsPosixCountryTest, TheCountryIsTheRegionOfTheLocale) {
  EXPECT_EQ(GetParam().country, countryWith({{"LANG", GetParam().locale}}));
}

INSTANTIATE_TEST_SUITE_P(
    Locales, DeviceFactsPosixCountryTest,
    testing::Values(CountryRow{"en_US.UTF-8", "US"}, CountryRow{"de_AT@euro", "AT"},
                    CountryRow{"de_AT.ISO-8859-15@euro", "AT"}, CountryRow{"es_419", "419"},
                    CountryRow{"C", std::nullopt}, CountryRow{"C.UTF-8", std::nullopt},
                    CountryRow{"POSIX", std::nullopt}, CountryRow{"de", std::nullopt},
                    CountryRow{"de_", std::nullopt}, CountryRow{"en_us", std::nullopt},
                    CountryRow{"en_USA", std::nullopt}, CountryRow{"en_41", std::nullopt},
                    CountryRow{"en_4I9", std::nullopt}, CountryRow{"de.a_DE", std::nullopt},
                    CountryRow{"zh_Hans_CN", std::nullopt}));

}  // namespace
}  // namespace zln
