#include "collector/options.h"

#include <getopt.h>

#include <charconv>
#include <stdexcept>
#include <string_view>

namespace zln::collector {
namespace {

constexpr int kHighestPort = 65535;
constexpr int kHighestCount = 1000000;

enum Letter { kHelp = 'h', kPort = 'p', kData = 'd', kSettings = 's', kReject = 'r', kFail = 'f' };

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, kHelp},
    {"port", required_argument, nullptr, kPort},
    {"data", required_argument, nullptr, kData},
    {"settings", required_argument, nullptr, kSettings},
    {"reject", required_argument, nullptr, kReject},
    {"fail", required_argument, nullptr, kFail},
    {nullptr, 0, nullptr, 0},
};

int parseNumber(std::string_view text, int highest, const std::string& what) {
  int number = -1;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size() || number < 0 ||
      number > highest) {
    throw std::invalid_argument(what + " must be a number from 0 to " + std::to_string(highest) +
                                ", not \"" + std::string(text) + "\"");
  }
  return number;
}

void parseFailure(std::string_view text, ReplyRules& rules) {
  const auto sign = text.rfind('=');
  if (sign == std::string_view::npos || sign == 0) {
    throw std::invalid_argument("--fail takes NETWORK=COUNT, not \"" + std::string(text) + "\"");
  }
  rules.failNext(std::string(text.substr(0, sign)),
                 parseNumber(text.substr(sign + 1), kHighestCount, "the count of --fail"));
}

}  // namespace

std::string usage() {
  return R"(zln-collector: receives session reports on this machine and shows them.

usage: zln-collector [options]

  --port N            the port on 127.0.0.1; 0 is any free one (8443)
  --data FOLDER       where certificate and received reports are kept (zln-collector-data)
  --settings FILE     a JSON object: the answer to games that ask for settings ({}); it is read
                      anew for every game that asks
  --reject NETWORK    refuse every report of this ad network for good
  --fail NETWORK=N    answer the next N reports of this ad network with "try again"
  --help              this text

--reject and --fail may be given several times. Ctrl-C ends the receiver.
)";
}

Options parseOptions(int argc, char* const argv[]) {
  Options options;
  optind = 1;
  for (int letter; (letter = getopt_long(argc, argv, "", kLongOptions, nullptr)) != -1;) {
    switch (letter) {
      case kHelp:
        options.help = true;
        break;
      case kPort:
        options.port = parseNumber(optarg, kHighestPort, "--port");
        break;
      case kData:
        options.data = optarg;
        break;
      case kSettings:
        options.settings = SettingsFile(optarg);
        break;
      case kReject:
        options.rules.reject(optarg);
        break;
      case kFail:
        parseFailure(optarg, options.rules);
        break;
      default:
        throw std::invalid_argument("--help shows the options");
    }
  }
  if (optind < argc) throw std::invalid_argument(std::string("what is \"") + argv[optind] + "\"?");
  return options;
}

}  // namespace zln::collector
