#pragma once

#include <filesystem>
#include <string>

#include "collector/reply_rules.h"
#include "collector/settings_file.h"

namespace zln::collector {

// What the command line asks for.
struct Options {
  bool help = false;
  int port = 8443;
  std::filesystem::path data = "zln-collector-data";
  SettingsFile settings;
  ReplyRules rules;
};

// The text of --help.
std::string usage();

// Throws std::invalid_argument with a text for people when the command line, or the settings file
// that it names, cannot be used.
Options parseOptions(int argc, char* const argv[]);

}  // namespace zln::collector
