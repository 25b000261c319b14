#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "collector/export.h"
#include "collector/fault.h"
#include "collector/game_server.h"
#include "collector/kept_reports.h"
#include "collector/settings_file.h"

namespace zln::collector {

// What the command line asks for.
struct Options {
  enum class Command { kServe, kExport, kHelp };

  Command command = Command::kServe;
  GamePorts ports;
  int pagePort = 8480;
  std::vector<std::string> hosts;  // Further ones that the certificate is for.
  std::filesystem::path data = "zln-collector-data";
  SettingsFile settings;
  KeepLimits keep;
  bool rejectInvalid = false;
  std::vector<Fault> faults;
  ExportFormat format = ExportFormat::kJsonLines;
};

// The text of --help.
std::string usage();

// Throws std::invalid_argument with a text for people when the command line, or the settings file
// that it names, cannot be used.
Options parseOptions(int argc, char* const argv[]);

}  // namespace zln::collector
