// zln-collector: a receiver of session reports for one machine, for demonstrations and for trying a
// game out.

#include <pthread.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <future>
#include <iostream>
#include <stdexcept>

#include "collector/certificates.h"
#include "collector/options.h"
#include "collector/receiver.h"

namespace {

using namespace zln::collector;

constexpr int kWrongUsage = 2;
constexpr timespec kPatience{0, 100'000'000};

// Blocks the signals that end the program, in all threads, so that one place can wait for them.
sigset_t blockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

void makePrivateFolder(const std::filesystem::path& folder) {
  if (std::filesystem::create_directories(folder)) {
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  }
}

void introduce(int port, const std::filesystem::path& authority,
               const std::filesystem::path& reports) {
  std::cout << "Receiving at https://localhost:" << port << " until Ctrl-C.\n"
            << "Reports are appended to " << reports.string() << ".\n"
            << "The authority of the certificate is " << authority.string() << ";\n"
            << "a game trusts it when it starts with\n"
            << "  SSL_CERT_FILE=" << authority.string() << std::endl;
}

bool isOver(std::future<bool>& serving) {
  return serving.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

// Serves until one of the signals arrives. False when the receiver ended by itself.
bool serveUntilSignal(Receiver& receiver, const sigset_t& signals) {
  auto serving = std::async(std::launch::async, [&] { return receiver.serve(); });
  bool told = false;
  while (!isOver(serving) && !(told && receiver.isServing())) {
    told = told || sigtimedwait(&signals, nullptr, &kPatience) > 0;
  }
  receiver.stop();
  serving.wait();
  return told;
}

int run(const Options& options) {
  const sigset_t signals = blockEndSignals();
  makePrivateFolder(options.data);
  const auto folder = std::filesystem::canonical(options.data);
  const CertificateFiles certificate = certificateFiles(folder);
  const auto reports = folder / "reports.jsonl";

  Receiver receiver(certificate, reports, options.rules, options.settings);
  introduce(receiver.bind(options.port), certificate.authority, reports);
  if (!serveUntilSignal(receiver, signals)) throw std::runtime_error("the port failed");
  std::cout << "Receiver ended." << std::endl;
  return EXIT_SUCCESS;
}

int fail(const std::exception& failure, int code) {
  std::cerr << "zln-collector: " << failure.what() << std::endl;
  return code;
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    const Options options = parseOptions(argc, argv);
    if (options.help) {
      std::cout << usage();
      return EXIT_SUCCESS;
    }
    return run(options);
  } catch (const std::invalid_argument& failure) {
    return fail(failure, kWrongUsage);
  } catch (const std::exception& failure) {
    return fail(failure, EXIT_FAILURE);
  }
}
