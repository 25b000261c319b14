#pragma once

// The package builds httplib with TLS; its own flags come from pkg-config.
#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "collector/certificates.h"
#include "collector/reply_rules.h"
#include "collector/settings_file.h"

namespace zln::collector {

// The HTTPS server: takes reports at /session and requests for settings at /config, prints one line
// for each and appends every report to a file, one JSON object a line.
class Receiver {
 public:
  // Throws std::runtime_error when the certificate or the file cannot be used.
  Receiver(const CertificateFiles& certificate, const std::filesystem::path& reports,
           ReplyRules rules, SettingsFile settings);

  // Takes the port on 127.0.0.1, 0 for any free one, and answers its number. From then on games can
  // connect. Throws std::runtime_error when the port is in use.
  int bind(int port);
  // Serves until `stop`. False when the port failed in between.
  bool serve();
  // True while `serve` runs; before that `stop` has no effect.
  bool isServing() const { return server_.is_running(); }
  // Any thread may call it.
  void stop() { server_.stop(); }

 private:
  void limitRequests();
  void routeRequests();
  std::string answerReport(const std::string& body);
  std::string answerSettings(const std::string& body);
  nlohmann::json takeReport(const nlohmann::json& report);
  void print(const std::string& line);

  httplib::SSLServer server_;
  std::mutex mutex_;  // One request at a time writes, prints and counts.
  std::ofstream reports_;
  ReplyRules rules_;
  SettingsFile settings_;
};

}  // namespace zln::collector
