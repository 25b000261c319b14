#include "collector/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "tests/collector/json_text.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Command = Options::Command;

Options parse(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "zln-collector");
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return parseOptions(static_cast<int>(arguments.size()), argv.data());
}

std::string complaintOf(std::vector<std::string> arguments) {
  try {
    parse(std::move(arguments));
    return "";
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
}

std::string fileWith(const TemporaryFolder& folder, const char* content) {
  const std::string path = folder.path() + "/settings.json";
  std::ofstream(path) << content;
  return path;
}

TEST(OptionsTest, HaveDefaults) {
  Options options = parse({});

  EXPECT_EQ(Command::kServe, options.command);
  EXPECT_EQ("127.0.0.1", options.ports.address);
  EXPECT_EQ(8443, options.ports.first);
  EXPECT_FALSE(options.ports.separate);
  EXPECT_EQ(8480, options.pagePort);
  EXPECT_EQ("zln-collector-data", options.data);
  EXPECT_EQ(100000, options.keep.reports);
  EXPECT_EQ(1024 * 1024 * 1024, options.keep.bytes);
  EXPECT_FALSE(options.rejectInvalid);
  EXPECT_THAT(options.hosts, IsEmpty());
  EXPECT_THAT(options.faults, IsEmpty());
  EXPECT_EQ("{}", textOf(options.settings.current()));
}

TEST(OptionsTest, TakeHelp) {
  EXPECT_EQ(Command::kHelp, parse({"--help"}).command);
  EXPECT_EQ(Command::kHelp, parse({"export", "--help"}).command);
}

TEST(OptionsTest, TakePortsAndHosts) {
  const Options options =
      parse({"--port", "0", "--separate-ports", "--page-port", "9000", "--listen", "::1", "--host",
             "config.invalid", "--host", "10.0.0.1"});

  EXPECT_EQ(0, options.ports.first);
  EXPECT_TRUE(options.ports.separate);
  EXPECT_EQ(9000, options.pagePort);
  EXPECT_EQ("::1", options.ports.address);
  EXPECT_THAT(options.hosts, ElementsAre("config.invalid", "10.0.0.1"));
}

TEST(OptionsTest, TakeFolderAndBounds) {
  const Options options =
      parse({"--data", "/somewhere", "--keep", "50", "--keep-mib", "3000", "--reject-invalid"});

  EXPECT_EQ("/somewhere", options.data);
  EXPECT_EQ(50, options.keep.reports);
  EXPECT_EQ(std::int64_t{3000} * 1024 * 1024, options.keep.bytes);
  EXPECT_TRUE(options.rejectInvalid);
}

TEST(OptionsTest, TakeFaults) {
  const Options options =
      parse({"--fault", "permanent,network=Grumble", "--fault", "temporary,network=a=b,times=1"});

  ASSERT_EQ(2u, options.faults.size());
  EXPECT_EQ(Effect::kPermanent, options.faults[0].effect);
  EXPECT_EQ(R"({"network":"Grumble"})", textOf(*options.faults[0].match));
  EXPECT_EQ(R"({"network":"a=b"})", textOf(*options.faults[1].match));
  EXPECT_EQ(1, options.faults[1].times);
}

TEST(OptionsTest, TakeAnExport) {
  EXPECT_EQ(Command::kExport, parse({"export"}).command);
  EXPECT_EQ(ExportFormat::kJsonLines, parse({"export", "--format", "jsonl"}).format);
  EXPECT_EQ(ExportFormat::kCsv, parse({"export", "--data", "there", "--format", "csv"}).format);
  EXPECT_EQ("there", parse({"export", "--data", "there"}).data);
  EXPECT_EQ("--format must be jsonl or csv, not \"xml\"",
            complaintOf({"export", "--format", "xml"}));
  EXPECT_EQ("--help shows the options", complaintOf({"export", "--port", "1"}));
  EXPECT_EQ("--help shows the options", complaintOf({"--format", "csv"}));
}

TEST(OptionsTest, TakeSettingsFromAFile) {
  const TemporaryFolder folder;

  Options options = parse({"--settings", fileWith(folder, R"({"key":3600})")});

  EXPECT_EQ(R"({"key":3600})", textOf(options.settings.current()));
}

TEST(OptionsTest, RefuseSettingsThatAreNoObject) {
  const TemporaryFolder folder;

  EXPECT_THAT(complaintOf({"--settings", fileWith(folder, "[1]")}), HasSubstr("no JSON object"));
  EXPECT_THAT(complaintOf({"--settings", fileWith(folder, "{")}), HasSubstr("no JSON object"));
  EXPECT_THAT(complaintOf({"--settings", folder.path() + "/missing"}), HasSubstr("cannot read"));
}

TEST(OptionsTest, RefuseWhatIsNoPort) {
  const std::string complaint = "--port must be a number from 0 to 65535, not ";

  EXPECT_EQ(complaint + "\"65536\"", complaintOf({"--port", "65536"}));
  EXPECT_EQ(complaint + "\"-1\"", complaintOf({"--port", "-1"}));
  EXPECT_EQ(complaint + "\"80x\"", complaintOf({"--port", "80x"}));
  EXPECT_EQ(complaint + "\"\"", complaintOf({"--port", ""}));
}

TEST(OptionsTest, RefuseSixPortsWhereThereAreNone) {
  EXPECT_EQ("", complaintOf({"--separate-ports", "--port", "65530"}));
  EXPECT_THAT(complaintOf({"--separate-ports", "--port", "65531"}), HasSubstr("65530"));
}

TEST(OptionsTest, RefuseToListenOnWhatIsNoAddress) {
  const std::string complaint = "--listen takes a numeric address, not ";

  EXPECT_EQ(complaint + "\"\"", complaintOf({"--listen", ""}));
  EXPECT_EQ(complaint + "\"localhost\"", complaintOf({"--listen", "localhost"}));
  EXPECT_EQ("0.0.0.0", parse({"--listen", "0.0.0.0"}).ports.address);
}

TEST(OptionsTest, RefuseWhatIsNoHost) {
  const std::string complaint = "--host takes the name of a host, not ";

  EXPECT_EQ(complaint + "\"\"", complaintOf({"--host", ""}));
  EXPECT_EQ(complaint + "\"a,DNS:b\"", complaintOf({"--host", "a,DNS:b"}));
  EXPECT_EQ(complaint + "\"*.example\"", complaintOf({"--host", "*.example"}));
}

TEST(OptionsTest, RefuseFaultsThatCannotBe) {
  EXPECT_THAT(complaintOf({"--fault", "explode"}),
              StartsWith("--fault explode: \"explode\" is no effect: temporary, permanent, "));
  EXPECT_EQ("--fault empty,times=0: \"times\" must be a number from 1 to 1000000",
            complaintOf({"--fault", "empty,times=0"}));
}

TEST(OptionsTest, RefuseToKeepNothing) {
  EXPECT_EQ("--keep must be a number from 1 to 10000000, not \"0\"", complaintOf({"--keep", "0"}));
  EXPECT_EQ("--keep-mib must be a number from 1 to 1048576, not \"0\"",
            complaintOf({"--keep-mib", "0"}));
}

TEST(OptionsTest, RefuseWhatTheyDoNotKnow) {
  EXPECT_EQ("what is \"more\"?", complaintOf({"more"}));
  EXPECT_EQ("--help shows the options", complaintOf({"--unknown"}));
}

}  // namespace
}  // namespace zln::collector
