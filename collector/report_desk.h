#pragma once

#include <cstdint>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "collector/event_stream.h"
#include "collector/fault_list.h"
#include "collector/line_printer.h"
#include "collector/settings_values.h"

namespace zln::collector {

// What a game is to be answered.
struct Reply {
  std::string body = {};
  int status = 200;
  std::optional<Fault> fault = {};          // How the answer is to be spoiled.
  std::optional<std::int64_t> report = {};  // The report that it is the answer to.
};

class ReportStore;
struct Added;

// What stands behind the servers. All of it may be called by any thread.
struct CollectorParts {
  ReportStore& store;
  FaultList& faults;
  SettingsValues& settings;
  EventStream& events;
};

// Takes reports and requests for settings in: decides the answer, stores, prints a line for each
// and tells those who listen, of all that befalls the store in its order. Any thread may call it.
class ReportDesk {
 public:
  // Reports that are invalid are refused for good, or taken like all others.
  ReportDesk(const CollectorParts& parts, LinePrinter& lines, bool rejectInvalid)
      : parts_(parts), lines_(lines), rejectInvalid_(rejectInvalid) {}

  Reply takeReport(const std::string& body);
  Reply takeConfigRequest(const std::string& body);
  // Forgets all reports.
  void clear();
  // The answer did not reach the game.
  void noteLostAnswer(const Reply& reply);
  // The fault of a connection, before anything is read from it.
  std::optional<Fault> takeConnectionFault(std::optional<std::string_view> type);
  // Prints a line for people with the time before it.
  void print(const std::string& line);

 private:
  std::optional<Fault> takeFault(std::string_view type, const nlohmann::json& body);
  Reply store(const std::string& body, std::optional<Fault> fault);
  Reply replyTo(const Added& added, std::optional<Fault> fault) const;
  void publish(const Added& added);

  const CollectorParts parts_;
  LinePrinter& lines_;
  const bool rejectInvalid_;
  std::mutex order_;  // Reports are stored, printed and told of one after the other.
};

}  // namespace zln::collector
