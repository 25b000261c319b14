#include "collector/report_kinds.h"

#include <algorithm>

namespace zln::collector {
namespace {

struct KindNames {
  ReportKind kind;
  std::string_view name;
  std::string_view type;
};

constexpr KindNames kNames[] = {
    {ReportKind::kSessionFirst, "session-first", "ReportTypeSessionFirst"},
    {ReportKind::kSessionStart, "session-start", "ReportTypeSessionStart"},
    {ReportKind::kSessionStop, "session-stop", "ReportTypeSessionStop"},
    {ReportKind::kAdAttempt, "ad-attempt", "ReportTypeAdAttempt"},
    {ReportKind::kAdZoneAttempt, "ad-zone-attempt", "ReportTypeAdZoneAttempt"},
};
constexpr std::string_view kUnknownName = "unknown";

}  // namespace

std::string_view nameOf(ReportKind kind) {
  const auto found = std::ranges::find(kNames, kind, &KindNames::kind);
  return found == std::end(kNames) ? kUnknownName : found->name;
}

std::optional<ReportKind> kindNamed(std::string_view name) {
  if (name == kUnknownName) return ReportKind::kUnknown;
  const auto found = std::ranges::find(kNames, name, &KindNames::name);
  return found == std::end(kNames) ? std::nullopt : std::optional(found->kind);
}

ReportKind kindOfType(std::string_view type) {
  const auto found = std::ranges::find(kNames, type, &KindNames::type);
  return found == std::end(kNames) ? ReportKind::kUnknown : found->kind;
}

bool isSession(ReportKind kind) {
  return kind == ReportKind::kSessionFirst || kind == ReportKind::kSessionStart ||
         kind == ReportKind::kSessionStop;
}

bool isAd(ReportKind kind) {
  return kind == ReportKind::kAdAttempt || kind == ReportKind::kAdZoneAttempt;
}

}  // namespace zln::collector
