#include "collector/options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string_view>

namespace zln::collector {
namespace {

constexpr std::int64_t kHighestPort = 65535;
constexpr std::int64_t kMostKept = 10000000;
constexpr std::int64_t kMostMebibytes = 1024 * 1024;
constexpr std::int64_t kMebibyte = 1024 * 1024;
constexpr int kSeparatePorts = 6;
constexpr std::size_t kLongestHost = 253;
constexpr char kExport[] = "export";

enum Letter {
  kHelp = 'h',
  kPort = 'p',
  kSeparate = '6',
  kPagePort = 'P',
  kListen = 'l',
  kHost = 'H',
  kData = 'd',
  kSettings = 's',
  kKeep = 'k',
  kKeepMebibytes = 'm',
  kRejectInvalid = 'r',
  kFault = 'f',
  kFormat = 'F',
};

constexpr option kServeOptions[] = {
    {"help", no_argument, nullptr, kHelp},
    {"port", required_argument, nullptr, kPort},
    {"separate-ports", no_argument, nullptr, kSeparate},
    {"page-port", required_argument, nullptr, kPagePort},
    {"listen", required_argument, nullptr, kListen},
    {"host", required_argument, nullptr, kHost},
    {"data", required_argument, nullptr, kData},
    {"settings", required_argument, nullptr, kSettings},
    {"keep", required_argument, nullptr, kKeep},
    {"keep-mib", required_argument, nullptr, kKeepMebibytes},
    {"reject-invalid", no_argument, nullptr, kRejectInvalid},
    {"fault", required_argument, nullptr, kFault},
    {nullptr, 0, nullptr, 0},
};

constexpr option kExportOptions[] = {
    {"help", no_argument, nullptr, kHelp},
    {"data", required_argument, nullptr, kData},
    {"format", required_argument, nullptr, kFormat},
    {nullptr, 0, nullptr, 0},
};

std::int64_t parseNumber(std::string_view text, std::int64_t lowest, std::int64_t highest,
                         const std::string& what) {
  std::int64_t number = -1;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size() || number < lowest ||
      number > highest) {
    throw std::invalid_argument(what + " must be a number from " + std::to_string(lowest) + " to " +
                                std::to_string(highest) + ", not \"" + std::string(text) + "\"");
  }
  return number;
}

int parsePort(std::string_view text, const std::string& what) {
  return static_cast<int>(parseNumber(text, 0, kHighestPort, what));
}

std::string parseAddress(const std::string& address) {
  unsigned char binary[sizeof(in6_addr)];
  if (::inet_pton(AF_INET, address.c_str(), binary) != 1 &&
      ::inet_pton(AF_INET6, address.c_str(), binary) != 1) {
    throw std::invalid_argument("--listen takes a numeric address, not \"" + address + "\"");
  }
  return address;
}

std::string parseHost(const std::string& name) {
  const auto isAllowed = [](unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.';
  };
  if (name.empty() || name.size() > kLongestHost || !std::ranges::all_of(name, isAllowed)) {
    throw std::invalid_argument("--host takes the name of a host, not \"" + name + "\"");
  }
  return name;
}

ExportFormat parseFormat(std::string_view text) {
  if (text == "jsonl") return ExportFormat::kJsonLines;
  if (text == "csv") return ExportFormat::kCsv;
  throw std::invalid_argument("--format must be jsonl or csv, not \"" + std::string(text) + "\"");
}

Fault parseFaultOption(std::string_view spec) {
  try {
    return parseFaultSpec(spec);
  } catch (const std::invalid_argument& failure) {
    throw std::invalid_argument("--fault " + std::string(spec) + ": " + failure.what());
  }
}

void take(int letter, Options& options) {
  switch (letter) {
    case kHelp:
      options.command = Options::Command::kHelp;
      break;
    case kPort:
      options.ports.first = parsePort(optarg, "--port");
      break;
    case kSeparate:
      options.ports.separate = true;
      break;
    case kPagePort:
      options.pagePort = parsePort(optarg, "--page-port");
      break;
    case kListen:
      options.ports.address = parseAddress(optarg);
      break;
    case kHost:
      options.hosts.push_back(parseHost(optarg));
      break;
    case kData:
      options.data = optarg;
      break;
    case kSettings:
      options.settings = SettingsFile(optarg);
      break;
    case kKeep:
      options.keep.reports = parseNumber(optarg, 1, kMostKept, "--keep");
      break;
    case kKeepMebibytes:
      options.keep.bytes = parseNumber(optarg, 1, kMostMebibytes, "--keep-mib") * kMebibyte;
      break;
    case kRejectInvalid:
      options.rejectInvalid = true;
      break;
    case kFault:
      options.faults.push_back(parseFaultOption(optarg));
      break;
    case kFormat:
      options.format = parseFormat(optarg);
      break;
    default:
      throw std::invalid_argument("--help shows the options");
  }
}

void checkPorts(const GamePorts& ports) {
  if (!ports.separate || ports.first <= kHighestPort - kSeparatePorts + 1) return;
  throw std::invalid_argument("--separate-ports takes six ports from --port on: it may be 65530");
}

bool isExport(int argc, char* const argv[]) {
  return argc > 1 && std::string_view(argv[1]) == kExport;
}

}  // namespace

std::string usage() {
  return R"(zln-collector: receives session reports on this machine and shows them.

usage: zln-collector [options]
       zln-collector export [--data FOLDER] [--format jsonl|csv]

  --port N            the port for games; 0 is any free one (8443)
  --separate-ports    six ports from there on, one for each kind of request: session-first,
                      session-start, session-stop, ad-attempt, ad-zone-attempt, config
  --page-port N       the port of the page and of the interface for programs (8480)
  --listen ADDRESS    the address of all ports (127.0.0.1)
  --host NAME         a further host that the certificate is for, if games are led here under its
                      name; may be given several times
  --data FOLDER       where certificates and received reports are kept (zln-collector-data)
  --settings FILE     a JSON object: the answer to games that ask for settings ({}); it is read
                      anew for every game that asks
  --keep N            how many reports are kept, the newest ones (100000)
  --keep-mib N        how many MiB their bodies may take together; beyond that the oldest go (1024)
  --reject-invalid    refuse invalid reports for good
  --fault EFFECT[,KEY=VALUE...]
                      misbehave; may be given several times
  --help              this text

Effects of a fault:
  temporary, permanent, status, empty, garbage, array, huge, delay, stall, redirect,
  cut-before, cut-during, cut-after, expired-certificate, wrong-host-certificate
Keys of a fault:
  type=KIND           for this kind of request only; may be given several times
  NAME=VALUE          for reports with this member only, such as network=Grumble
  times=N             for the next N requests
  share=S, seed=N     for a share of the requests from 0 to 1, the same ones for the same seed
  seconds=N           so long before the answer or the cut, or in the middle of a stalled body
  status=N, error=TEXT, to=https|http
                      what some of the effects need

The page switches faults and settings, too. Ctrl-C ends the collector. `export` writes all reports
to the standard output.
)";
}

Options parseOptions(int argc, char* const argv[]) {
  Options options;
  const bool exports = isExport(argc, argv);
  if (exports) options.command = Options::Command::kExport;
  const option* const known = exports ? kExportOptions : kServeOptions;
  optind = exports ? 2 : 1;
  for (int letter; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
    take(letter, options);
  }
  if (optind < argc) throw std::invalid_argument(std::string("what is \"") + argv[optind] + "\"?");
  checkPorts(options.ports);
  return options;
}

}  // namespace zln::collector
