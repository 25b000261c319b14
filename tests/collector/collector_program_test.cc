// The program itself, as somebody starts it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "collector/http_status.h"
#include "collector/json.h"
#include "collector/owned_socket.h"
#include "tests/collector/running_collector.h"
#include "tests/collector/small_pipe.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;

constexpr auto kGlance = std::chrono::milliseconds(5);
constexpr char kReady[] = "The page is at http://";
constexpr char kPage[] = "The page is at http://localhost:";

// A run of the program, ended at the end of the test at the latest.
class Program {
 public:
  // What it prints goes to a file, or to `output`.
  Program(const TemporaryFolder& folder, std::vector<std::string> arguments, int output = -1)
      : output_(folder.path() + "/output"), errors_(folder.path() + "/errors") {
    arguments.insert(arguments.begin(), ZLN_COLLECTOR_PROGRAM);
    std::filesystem::remove(output_);
    pid_ = ::fork();
    if (pid_ == 0) run(arguments, output);
  }

  ~Program() {
    if (pid_ > 0) end(SIGKILL);
  }

  // The number of the port that stands after a text of the output, waited for.
  int portAfter(const std::string& text) const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!isReady() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(kGlance);
    }
    const auto place = output().find(text);
    return place == std::string::npos ? 0 : std::stoi(output().substr(place + text.size()));
  }

  // Sends a signal and answers the exit code; -1 when another signal has ended the program.
  int end(int signal) {
    ::kill(pid_, signal);
    return exitCode();
  }

  // Lets its files grow to this size and no further.
  void limitFiles(rlim_t size) const {
    const rlimit limits{size, size};
    EXPECT_EQ(0, ::prlimit(pid_, RLIMIT_FSIZE, &limits, nullptr));
  }

  int exitCode() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string output() const { return contentOf(output_); }
  std::string errors() const { return contentOf(errors_); }

 private:
  // Has printed all of its introduction.
  bool isReady() const {
    const std::string printed = output();
    return printed.find('\n', printed.find(kReady)) != std::string::npos;
  }

  [[noreturn]] void run(std::vector<std::string>& arguments, int output) const {
    if (output < 0) output = ::open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(::open(errors_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }

  static std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  const std::string output_;
  const std::string errors_;
  pid_t pid_ = -1;
};

class CollectorProgramTest : public testing::Test {
 protected:
  std::unique_ptr<Program> start(std::vector<std::string> more = {}, int output = -1) const {
    std::vector<std::string> arguments = {"--port", "0", "--page-port", "0", "--data", data()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return std::make_unique<Program>(folder_, arguments, output);
  }

  std::string data() const { return folder_.path() + "/data"; }

  std::string post(const Program& program,
                   const std::string& report = R"({"network":"Grumble"})") const {
    return answerFrom("localhost", program.portAfter("https://localhost:"), "/session", report);
  }

  // The answer to a report or a request for settings, under the name of a host.
  std::string answerFrom(const std::string& host, int port, const std::string& path,
                         const std::string& body = R"({"network":"Grumble"})") const {
    httplib::SSLClient client(host, port);
    client.set_hostname_addr_map({{"elsewhere.example", "127.0.0.1"}});
    client.set_ca_cert_path((data() + "/ca.pem").c_str());
    client.enable_server_certificate_verification(true);
    const auto result = client.Post(path, body, kJson);
    return result ? result->body : "no answer: " + httplib::to_string(result.error());
  }

  std::string authority() const {
    std::ifstream file(data() + "/ca.pem");
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  static json status(const Program& program) {
    httplib::Client client("localhost", program.portAfter(kPage));
    const auto result = client.Get("/api/status");
    return result ? json::parse(result->body) : json();
  }

  const TemporaryFolder folder_;
};

TEST_F(CollectorProgramTest, SaysWhereEverythingIs) {
  const auto program = start();

  EXPECT_EQ(program->portAfter("Receiving at https://localhost:"),
            status(*program)["ports"]["config"]);

  EXPECT_THAT(program->output(), HasSubstr("\n  SSL_CERT_FILE=" + data() + "/ca.pem\n"));
  EXPECT_THAT(program->output(), HasSubstr("Reports are kept in " + data() + "/reports.db.\n"));
}

TEST_F(CollectorProgramTest, EndsCleanlyThoughClientsHang) {
  const auto program = start({"--fault", "delay,seconds=3000"});
  httplib::Client follower("localhost", program->portAfter(kPage));
  std::atomic<bool> following = false;
  std::thread events([&] {
    follower.set_read_timeout(kPatience);
    follower.Get("/api/events", [&](const char*, size_t) { return following = true; });
  });
  std::thread held([&] { post(*program); });
  while (!following || status(*program)["reports"] != 1) std::this_thread::sleep_for(kGlance);

  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(0, program->end(SIGINT));

  EXPECT_GT(std::chrono::seconds(20), std::chrono::steady_clock::now() - begin);
  EXPECT_THAT(program->output(), HasSubstr("\nCollector ended.\n"));
  EXPECT_EQ("", program->errors());
  events.join();
  held.join();
}

// A collector that prints into a pipe, of which nothing is read but the introduction.
class UnreadCollectorTest : public CollectorProgramTest {
 protected:
  UnreadCollectorTest() {
    const std::string introduction = readUntil(kReady);
    const std::string address = "https://localhost:";
    port_ = std::stoi(introduction.substr(introduction.find(address) + address.size()));
  }

  // Reports are counted off by their networks. False when one is not answered.
  bool sendReports(int count) const {
    httplib::SSLClient client("localhost", port_);
    client.set_ca_cert_path((data() + "/ca.pem").c_str());
    client.enable_server_certificate_verification(true);
    client.set_read_timeout(kPatience);
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true);
    for (int i = 0; i < count; ++i) {
      const json report = {{"type", "ReportTypeAdAttempt"}, {"network", "N" + std::to_string(i)}};
      if (!client.Post("/session", report.dump(), kJson)) return false;
    }
    return true;
  }

  // What is printed up to a text, or to the end.
  std::string readUntil(const std::string& text) const {
    std::string printed;
    char byte;
    while (!printed.ends_with(text) && ::read(pipe_.reading(), &byte, 1) == 1) {
      printed += byte;
    }
    return printed;
  }

  SmallPipe pipe_;
  const std::unique_ptr<Program> program_ = start({}, pipe_.takeWriting().get());
  int port_ = 0;
};

TEST_F(UnreadCollectorTest, AnswersReports) {
  EXPECT_TRUE(sendReports(200));

  const std::string printed = readUntil("N199,");
  std::string::size_type last = 0;
  for (int i = 0; i < 200; ++i) {
    const auto place = printed.find(" by N" + std::to_string(i) + ",");
    ASSERT_NE(std::string::npos, place) << "the line of report " << i << " is missing";
    EXPECT_LE(last, place) << "the line of report " << i << " is too early";
    last = place;
  }
}

TEST_F(UnreadCollectorTest, PrintsWhatWaitsAtItsEnd) {
  EXPECT_TRUE(sendReports(200));

  std::string printed;
  std::thread reader([&] { printed = readUntil("Collector ended.\n"); });
  EXPECT_EQ(0, program_->end(SIGINT));
  reader.join();

  EXPECT_THAT(printed, HasSubstr(" by N199,"));
  EXPECT_THAT(printed, EndsWith("\nCollector ended.\n"));
}

TEST_F(UnreadCollectorTest, EndsThoughNobodyReads) {
  EXPECT_TRUE(sendReports(200));

  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(0, program_->end(SIGINT));

  EXPECT_GT(std::chrono::seconds(20), std::chrono::steady_clock::now() - begin);
  EXPECT_EQ("", program_->errors());
}

TEST_F(CollectorProgramTest, KeepsReportsAndCertificatesOverItsEnd) {
  const auto first = start({"--fault", "permanent,network=Grumble,error=no room"});
  EXPECT_THAT(post(*first), HasSubstr("no room"));
  EXPECT_EQ(0, first->end(SIGTERM));
  EXPECT_THAT(first->output(), HasSubstr("-> REFUSED FOR GOOD: no room"));

  const auto second = start();
  EXPECT_EQ(R"({"success":true})", post(*second));

  EXPECT_EQ(2, status(*second)["reports"]);
}

TEST_F(CollectorProgramTest, ExportsWhatItHasKept) {
  const auto program = start();
  post(*program);
  EXPECT_EQ(0, program->end(SIGINT));

  Program exporting(folder_, {"export", "--data", data()});

  EXPECT_EQ(0, exporting.exitCode());
  EXPECT_EQ("Grumble", json::parse(exporting.output())["body"]["network"]);
}

TEST_F(CollectorProgramTest, SaysThatAnExportIsNotWhole) {
  const auto program = start();
  post(*program, std::string(64 * 1024, 'a'));
  EXPECT_EQ(0, program->end(SIGINT));
  const OwnedSocket full(::open("/dev/full", O_WRONLY | O_CLOEXEC));

  Program exporting(folder_, {"export", "--data", data()}, full.get());

  EXPECT_EQ(1, exporting.exitCode());
  EXPECT_EQ("zln-collector: cannot write the reports\n", exporting.errors());
}

TEST_F(CollectorProgramTest, PutsReportsOffWhenItsFilesMayNotGrow) {
  const auto program = start();
  EXPECT_EQ(R"({"success":true})", post(*program));
  program->limitFiles(128 * 1024);

  std::string answer;
  for (int i = 0; i < 100 && answer != R"({"success":false})"; ++i) answer = post(*program);

  EXPECT_EQ(R"({"success":false})", answer);
  EXPECT_EQ(0, program->end(SIGINT));
}

TEST_F(CollectorProgramTest, SaysWhichPortIsTaken) {
  const auto program = start();
  const std::string port = std::to_string(program->portAfter("https://localhost:"));
  const TemporaryFolder other;

  Program second(other, {"--port", port, "--page-port", "0", "--data", other.path() + "/data"});

  EXPECT_EQ(1, second.exitCode());
  EXPECT_EQ(
      "zln-collector: cannot listen on port " + port + " of 127.0.0.1: Address already in use\n",
      second.errors());
}

TEST_F(CollectorProgramTest, LeavesTheFilesOfAnotherThatRunsAlone) {
  const auto program = start();
  program->portAfter(kPage);
  const std::string before = authority();
  const TemporaryFolder other;

  Program second(
      other, {"--port", "0", "--page-port", "0", "--data", data(), "--host", "elsewhere.example"});

  EXPECT_EQ(1, second.exitCode());
  EXPECT_THAT(second.errors(), HasSubstr("is in use by another collector\n"));
  EXPECT_NE("", before);
  EXPECT_EQ(before, authority());
}

TEST_F(CollectorProgramTest, DoesAsItsOptionsSay) {
  const std::string settings = folder_.path() + "/settings.json";
  std::ofstream(settings) << R"({"key":1})";
  const auto program =
      start({"--separate-ports", "--reject-invalid", "--keep", "2", "--settings", settings,
             "--host", "elsewhere.example", "--fault", "cut-before,type=ad-attempt"});
  const json ports = status(*program)["ports"];

  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(answerFrom("elsewhere.example", ports["session-first"], "/session"),
                HasSubstr("errorIsPermanent"));
  }
  EXPECT_EQ(R"({"key":1})", answerFrom("localhost", ports["config"], "/config"));
  EXPECT_THAT(answerFrom("localhost", ports["ad-attempt"], "/session"), HasSubstr("no answer"));

  EXPECT_EQ(2, status(*program)["reports"]);
}

TEST_F(CollectorProgramTest, ListensWhereItIsToldTo) {
  const auto program = start({"--listen", "127.0.0.2"});
  httplib::Client page("127.0.0.2", program->portAfter("The page is at http://127.0.0.2:"));

  EXPECT_TRUE(page.Get("/api/status"));
  EXPECT_EQ(R"({"success":true})",
            answerFrom("127.0.0.2", program->portAfter("https://127.0.0.2:"), "/session"));
  EXPECT_EQ(json(), status(*program));
}

TEST_F(CollectorProgramTest, TellsWrongUsageFromFailure) {
  Program unknown(folder_, {"--unknown"});
  EXPECT_EQ(2, unknown.exitCode());
  EXPECT_THAT(unknown.errors(), HasSubstr("zln-collector: --help shows the options\n"));

  Program impossible(folder_, {"--data", data(), "--fault", "cut-before,type=config"});
  EXPECT_EQ(2, impossible.exitCode());
  EXPECT_THAT(impossible.errors(), HasSubstr("--separate-ports"));

  Program nothing(folder_, {"export", "--data", folder_.path() + "/missing"});
  EXPECT_EQ(1, nothing.exitCode());
}

TEST_F(CollectorProgramTest, ShowsItsUsage) {
  Program help(folder_, {"--help"});

  EXPECT_EQ(0, help.exitCode());
  EXPECT_THAT(help.output(), HasSubstr("usage: zln-collector [options]\n"));
}

}  // namespace
}  // namespace zln::collector
