// zln-collector: a receiver of session reports for one machine, for demonstrations, for trying a
// game out and for its tests.

#include <pthread.h>
#include <unistd.h>

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
#include "collector/line_printer.h"
#include "collector/operator_api.h"
#include "collector/operator_server.h"
#include "collector/options.h"
#include "collector/report_desk.h"
#include "collector/report_store.h"

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

void introducePorts(const std::string& address, const CollectorFacts& facts, LinePrinter& lines) {
  lines.print("Receiving until Ctrl-C at");
  for (const auto& [type, port] : facts.ports) {
    lines.print("  " + address + std::to_string(port) + "  " + type);
  }
}

void introduce(const Options& options, const CollectorFacts& facts, LinePrinter& lines) {
  const std::string host = hostOf(options.ports.address);
  const std::string address = "https://" + host + ":";
  if (options.ports.separate) {
    introducePorts(address, facts, lines);
  } else {
    const std::string port = std::to_string(facts.ports.begin()->second);
    lines.print("Receiving at " + address + port + " until Ctrl-C.");
  }
  lines.print("Reports are kept in " + facts.data + "/" + kDatabase + ".");
  lines.print("The authority of the certificate is " + facts.authority + ";");
  lines.print("a game trusts it when it starts with");
  lines.print("  SSL_CERT_FILE=" + facts.authority);
  lines.print("The page is at http://" + host + ":" + std::to_string(facts.page) + "/");
}

void waitFor(const sigset_t& signals) {
  int signal = 0;
  sigwait(&signals, &signal);
}

int serve(Options options) {
  const sigset_t signals = blockEndSignals();
  std::signal(SIGXFSZ, SIG_IGN);  // A file that may not grow is an error like a full disk.
  LinePrinter lines(STDOUT_FILENO);
  FaultList faults(options.ports.separate);
  for (Fault& fault : options.faults) faults.add(std::move(fault));
  const auto folder = makePrivateFolder(options.data);
  // The store is first: it keeps a second collector from the files of this one.
  ReportStore store(folder / kDatabase, options.keep, embeddedSchemas());
  const CertificateFiles files = certificateFiles(folder, certifiedHosts(options));
  SettingsValues settings(std::move(options.settings));
  EventStream events;
  const CollectorParts parts{store, faults, settings, events};
  ReportDesk desk(parts, lines, options.rejectInvalid);
  GameServer games(options.ports, files, desk, faults);
  auto page = std::make_unique<ListeningPort>(options.ports.address, options.pagePort);
  const CollectorFacts facts{games.ports(), page->number(), files.authority, folder,
                             options.rejectInvalid};
  OperatorServer operators(std::move(page), options.ports.address, parts, desk, facts,
                           folder / kDatabase);

  introduce(options, facts, lines);
  games.start(facts.page);
  operators.start();
  waitFor(signals);
  events.end();
  operators.stop();
  games.stop();
  lines.print("Collector ended.");
  return EXIT_SUCCESS;
}

int exportAll(const Options& options) {
  exportReports(options.data / kDatabase, options.format, [](std::string_view piece) {
    return std::fwrite(piece.data(), 1, piece.size(), stdout) == piece.size();
  });
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (!written) throw std::runtime_error("cannot write the reports");
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
