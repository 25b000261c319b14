#pragma once

namespace zln {

// What a report is, under "type" in its dictionary.
inline constexpr char kReportTypeSessionFirst[] = "ReportTypeSessionFirst";
inline constexpr char kReportTypeSessionStart[] = "ReportTypeSessionStart";
inline constexpr char kReportTypeSessionStop[] = "ReportTypeSessionStop";
inline constexpr char kReportTypeAdAttempt[] = "ReportTypeAdAttempt";
inline constexpr char kReportTypeAdZoneAttempt[] = "ReportTypeAdZoneAttempt";

}  // namespace zln
