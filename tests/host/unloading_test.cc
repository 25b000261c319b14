// The shared library in a host that loads it at run time, and unloads it while requests are under
// way with a server that never answers.

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/environment_variable.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

constexpr char kLibraryName[] = "libZLNSessionReporting.so";
constexpr unsigned kPatienceSeconds = 60;

std::string libraryPath() {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(ZLN_SHARED_PACKAGE)) {
    if (entry.path().filename() == kLibraryName) return entry.path();
  }
  ADD_FAILURE() << "no " << kLibraryName << " in " << ZLN_SHARED_PACKAGE;
  return "";
}

// The library as its user sees it after loading.
class LoadedLibrary {
 public:
  LoadedLibrary() : handle_(dlopen(libraryPath().c_str(), RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(nullptr, handle_) << dlerror();
  }
  void unload() { EXPECT_EQ(0, dlclose(handle_)); }

  template <typename Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle_, name));
  }

 private:
  void* const handle_;
};

// The functions that the tests call.
struct Functions {
  explicit Functions(const LoadedLibrary& library)
      : initialize(library.function<void(const char*)>("ZLNInitializeReporting")),
        start(library.function<void()>("ZLNStartSessionReporting")),
        becomeActive(library.function<void()>("ZLNHostApplicationDidBecomeActive")),
        sendBanner(library.function<void(const char*, bool)>("ZLNSendBannerAdAttemptReport")),
        describe(library.function<char*()>("ZLNGetSessionDescription")) {}

  // The identifier of the current session.
  std::string session() const {
    char* text = describe();
    const std::string description = text;
    std::free(text);
    const std::size_t begin = description.find("UUID: ");
    return description.substr(begin, description.find('\n', begin) - begin);
  }

  void (*initialize)(const char*);
  void (*start)();
  void (*becomeActive)();
  void (*sendBanner)(const char*, bool);
  char* (*describe)();
};

bool isMapped() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(kLibraryName) != std::string::npos) return true;
  }
  return false;
}

class UnloadingTest : public testing::Test {
 protected:
  // Connections are made by the system, and nobody reads from them.
  UnloadingTest() : server_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(0, bind(server_, generic, size));
    EXPECT_EQ(0, listen(server_, 16));
    EXPECT_EQ(0, getsockname(server_, generic, &size));
    proxy_.set("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)));
  }
  ~UnloadingTest() override { close(server_); }

  // Until a request is under way.
  void awaitConnection() const { EXPECT_LE(0, accept(server_, nullptr, nullptr)); }

  // In a process of its own, whose end shows what came of it.
  template <typename Body>
  void inHost(Body body) {
    const pid_t host = fork();
    if (host == 0) {
      alarm(kPatienceSeconds);
      body();
      std::exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(host, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
  }

  static void begin(const Functions& library) {
    library.initialize("engine-5");
    library.start();
    library.becomeActive();
  }

 private:
  TemporaryFolder home_;
  EnvironmentVariable data_{"XDG_DATA_HOME", home_.path() + "/data"};
  EnvironmentVariable config_{"XDG_CONFIG_HOME", home_.path() + "/config"};
  EnvironmentVariable proxy_{"https_proxy", ""};
  const int server_;
};

TEST_F(UnloadingTest, TheLibraryStaysWithItsRequestsUnderWayAndASecondLoadingGoesOnWithItsState) {
  inHost([this] {
    LoadedLibrary library;
    const Functions functions(library);
    begin(functions);
    functions.sendBanner("n", true);
    awaitConnection();
    const std::string session = functions.session();
    EXPECT_GT(session.size(), std::string("UUID: ").size());

    library.unload();

    EXPECT_TRUE(isMapped());
    functions.sendBanner("n", true);
    EXPECT_EQ(session, functions.session());
    LoadedLibrary again;
    const Functions later(again);
    EXPECT_EQ(functions.sendBanner, later.sendBanner);
    EXPECT_EQ(session, later.session());
    again.unload();
  });
}

TEST_F(UnloadingTest, LoadingAndUnloadingInTurnsStandsInNobodysWay) {
  inHost([] {
    for (int round = 0; round < 100; ++round) {
      LoadedLibrary library;
      const Functions functions(library);
      begin(functions);
      functions.sendBanner("n", true);
      library.unload();
    }
    EXPECT_TRUE(isMapped());
  });
}

}  // namespace
}  // namespace zln
