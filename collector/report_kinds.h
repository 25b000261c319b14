#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace zln::collector {

// Which report a body is, by its "type".
enum class ReportKind {
  kSessionFirst,
  kSessionStart,
  kSessionStop,
  kAdAttempt,
  kAdZoneAttempt,
  kUnknown,
};

// Those that the library sends.
inline constexpr std::array kReportKinds = {ReportKind::kSessionFirst, ReportKind::kSessionStart,
                                            ReportKind::kSessionStop, ReportKind::kAdAttempt,
                                            ReportKind::kAdZoneAttempt};

// The name for programs, such as "session-first"; also that of the schema in docs/schema.
std::string_view nameOf(ReportKind kind);
std::optional<ReportKind> kindNamed(std::string_view name);

// The kind of a body with this "type", such as "ReportTypeSessionFirst".
ReportKind kindOfType(std::string_view type);

bool isSession(ReportKind kind);
bool isAd(ReportKind kind);

}  // namespace zln::collector
