#pragma once

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/support/environment_variable.h"
#include "tests/support/temporary_folder.h"

namespace zln {

// While it lives, numbers of the C library have another decimal point: by default a comma. The
// locale is made for the occasion, none need be installed.
class DecimalCommaLocale {
 public:
  static bool canBeMade() { return std::system("command -v localedef >/dev/null") == 0; }

  // The decimal point is named as localedef wants it: "<U002C>".
  explicit DecimalCommaLocale(const std::string& decimalPoint = "<U002C>")
      : folders_("LOCPATH", folder_.path()),
        isActive_(make(decimalPoint) && std::setlocale(LC_NUMERIC, "made") != nullptr) {}
  ~DecimalCommaLocale() { std::setlocale(LC_NUMERIC, "C"); }
  DecimalCommaLocale(const DecimalCommaLocale&) = delete;
  DecimalCommaLocale& operator=(const DecimalCommaLocale&) = delete;

  bool isActive() const { return isActive_; }

 private:
  bool make(const std::string& decimalPoint) const {
    std::ofstream(folder_.path() + "/source") << "LC_NUMERIC\n"
                                              << "decimal_point \"" << decimalPoint << "\"\n"
                                              << "thousands_sep \"<U002E>\"\n"
                                              << "grouping 3;3\n"
                                              << "END LC_NUMERIC\n";
    // The other categories are left to defaults, of which -c makes warnings and a bad exit code.
    const std::string command =
        "cd '" + folder_.path() + "' && localedef --quiet -c -i source -f UTF-8 ./made";
    return std::system(command.c_str()) != -1 && std::ifstream(folder_.path() + "/made/LC_NUMERIC");
  }

  TemporaryFolder folder_;
  EnvironmentVariable folders_;
  bool isActive_;
};

}  // namespace zln
