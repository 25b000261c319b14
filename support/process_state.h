#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/environment.h"
#include "support/field.h"
#include "support/once.h"

namespace zln {

class ZLNReportingConfig;
class ZLNReportingManager;
class ZLNSessionManager;

// All that lives as long as the process.
struct ProcessState {
  explicit ProcessState(Environment& environmentOfProcess) : environment(environmentOfProcess) {}
  ProcessState(const ProcessState&) = delete;
  ProcessState& operator=(const ProcessState&) = delete;

  Environment& environment;
  Field<bool> enabled{false};
  Field<std::uint64_t> currentLogLevel{0};
  Field<std::optional<std::string>> marlwickVersion{std::string("0.0.0")};
  // The shared objects come last: they go first, while log and level still work.
  Once<ZLNReportingConfig> config;
  Once<ZLNReportingManager> reportingManager;
  Once<ZLNSessionManager> sessionManager;
};

// The state of this process. It is never destroyed: threads may use it to the very end.
ProcessState& processState();

inline Environment& environment() { return processState().environment; }

}  // namespace zln
