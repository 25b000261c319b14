// zln-collector: a receiver of session reports for one machine, for demonstrations, for trying a
// game out and for its tests.

#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "collector/certificates.h"
#include "collector/embedded_schemas.h"
#include "collector/export.h"
#include "collector/game_server.h"
#include "collector/operator_server.h"
#include "collector/options.h"
#include "collector/report_desk.h"

namespace {

using namespace zln::collector;

constexpr int kWrongUsage = 2;
constexpr char kDatabase[] = "reports.db";

// Blocks the signals that end the program, in all threads, so that one place can wait for them.
sigset_t blockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

std::filesystem::path makePrivateFolder(const std::filesystem::path& folder) {
  if (std::filesystem::create_directories(folder)) {
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  }
  return std::filesystem::canonical(folder);
}

// The name under which clients of this machine reach an address.
std::string hostOf(const std::string& address) {
  const bool isHere =
      address == "127.0.0.1" || address == "0.0.0.0" || address == "::1" || address == "::";
  if (isHere) return "localhost";
  return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

// Those that clients may know the collector by, besides this machine's own names.
std::vector<std::string> certifiedHosts(const Options& options) {
  std::vector<std::string> hosts = options.hosts;
  const std::string& address = options.ports.address;
  if (address != "0.0.0.0" && address != "::") hosts.push_back(address);
  return hosts;
}

void introducePorts(const std::string& host, const Options& options, const CollectorFacts& facts) {
  if (!options.ports.separate) {
    std::cout << "Receiving at https://" << host << ":" << facts.ports.begin()->second
              << " until Ctrl-C.\n";
    return;
  }
  std::cout << "Receiving until Ctrl-C at\n";
  for (const auto& [type, port] : facts.ports) {
    std::cout << "  https://" << host << ":" << port << "  " << type << "\n";
  }
}

void introduce(const Options& options, const CollectorFacts& facts) {
  const std::string host = hostOf(options.ports.address);
  introducePorts(host, options, facts);
  std::cout << "Reports are kept in " << facts.data << "/" << kDatabase << ".\n"
            << "The authority of the certificate is " << facts.authority << ";\n"
            << "a game trusts it when it starts with\n"
            << "  SSL_CERT_FILE=" << facts.authority << "\n"
            << "The page is at http://" << host << ":" << facts.page << "/" << std::endl;
}

void waitFor(const sigset_t& signals) {
  int signal = 0;
  sigwait(&signals, &signal);
}

int serve(Options options) {
  const sigset_t signals = blockEndSignals();
  FaultList faults(options.ports.separate);
  for (Fault& fault : options.faults) faults.add(std::move(fault));
  const auto folder = makePrivateFolder(options.data);
  const CertificateFiles files = certificateFiles(folder, certifiedHosts(options));
  ReportStore store(folder / kDatabase, options.keep, embeddedSchemas());
  SettingsValues settings(std::move(options.settings));
  EventStream events;
  const CollectorParts parts{store, faults, settings, events};
  ReportDesk desk(parts, options.rejectInvalid);
  GameServer games(options.ports, files, desk, faults);
  auto page = std::make_unique<ListeningPort>(options.ports.address, options.pagePort);
  const CollectorFacts facts{games.ports(), page->number(), files.authority, folder,
                             options.rejectInvalid};
  OperatorServer operators(std::move(page), options.ports.address, parts, facts,
                           folder / kDatabase);

  introduce(options, facts);
  games.start(facts.page);
  operators.start();
  waitFor(signals);
  events.end();
  operators.stop();
  games.stop();
  std::cout << "Collector ended." << std::endl;
  return EXIT_SUCCESS;
}

int exportAll(const Options& options) {
  exportReports(options.data / kDatabase, options.format, [](std::string_view piece) {
    return std::fwrite(piece.data(), 1, piece.size(), stdout) == piece.size();
  });
  if (std::fflush(stdout) != 0) throw std::runtime_error("cannot write the reports");
  return EXIT_SUCCESS;
}

int run(Options options) {
  switch (options.command) {
    case Options::Command::kHelp:
      std::cout << usage();
      return EXIT_SUCCESS;
    case Options::Command::kExport:
      return exportAll(options);
    case Options::Command::kServe:
      break;
  }
  return serve(std::move(options));
}

int fail(const std::exception& failure, int code) {
  std::cerr << "zln-collector: " << failure.what() << std::endl;
  return code;
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    return run(parseOptions(argc, argv));
  } catch (const std::invalid_argument& failure) {
    return fail(failure, kWrongUsage);
  } catch (const std::exception& failure) {
    return fail(failure, EXIT_FAILURE);
  }
}
