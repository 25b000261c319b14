#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "collector/report_desk.h"

namespace zln::collector {

// What /api/status tells of the program and does not change while it runs.
struct CollectorFacts {
  std::map<std::string, int> ports;
  int page = 0;
  std::string authority;
  std::string data;
  bool rejectInvalid = false;
};

// What the interface for programs does, without its HTTP. Any thread may call it. All throw
// ApiError or std::invalid_argument when something is wrong with what was asked, and
// std::runtime_error when the store cannot be used.
class OperatorApi {
 public:
  OperatorApi(const CollectorParts& parts, ReportDesk& desk, CollectorFacts facts);

  nlohmann::json status();
  nlohmann::json reports(const std::multimap<std::string, std::string>& parameters);
  nlohmann::json report(std::int64_t id);
  void clearReports();
  // With "satisfied": whether there are as many reports as were to be waited for.
  nlohmann::json wait(const nlohmann::json& request);
  nlohmann::json summary();
  nlohmann::json timeline(const std::multimap<std::string, std::string>& parameters);

  nlohmann::json faults();
  nlohmann::json addFault(const nlohmann::json& request);
  void removeFault(int id);
  void clearFaults();

  nlohmann::json settings();
  nlohmann::json setSettings(const nlohmann::json& request);
  nlohmann::json resetSettings();
  nlohmann::json lint(const nlohmann::json& request);

 private:
  nlohmann::json publishSettings();
  void publishFaults();

  const CollectorParts parts_;
  ReportDesk& desk_;
  const CollectorFacts facts_;
  const double started_;
};

}  // namespace zln::collector
