#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace zln::collector {

// What a fault does to a request.
enum class Effect {
  kTemporary,             // The answer puts the report off.
  kPermanent,             // The answer refuses the report for good.
  kStatus,                // The ordinary answer with another status.
  kEmpty,                 // No body.
  kGarbage,               // A body that is no JSON.
  kArray,                 // A body that is a JSON array.
  kHuge,                  // A body far larger than any client should take.
  kDelay,                 // The ordinary answer comes late.
  kStall,                 // The answer stands still in the middle of its body.
  kCutBefore,             // The connection ends before anything is read from it.
  kCutDuring,             // It ends before the request is taken in.
  kCutAfter,              // It ends after the request is taken in, without an answer.
  kRedirect,              // The answer sends the client elsewhere.
  kExpiredCertificate,    // The server shows a certificate whose time is over.
  kWrongHostCertificate,  // The server shows the certificate of another host.
};

// The settings' request among the names of reports.
inline constexpr std::string_view kConfigType = "config";

// A way to misbehave, for which requests and how often.
struct Fault {
  int id = 0;
  Effect effect = Effect::kTemporary;
  std::set<std::string> types;                  // Of reports, or "config"; none for all.
  std::shared_ptr<const nlohmann::json> match;  // Members of the body that must be equal, or null.
  int status = 200;
  std::string error;
  double seconds = 0;  // Before the answer or the cut; in the middle of the body for a stall.
  bool toHttp = false;
  std::optional<int> times;     // Acts so often at most.
  std::optional<double> share;  // Acts on so many of the requests that it is for.
  std::uint64_t seed = 1;       // Chooses those.
  std::int64_t seen = 0;        // Requests that it was for.
  std::int64_t hits = 0;        // Those on which it acted.
};

// The name for programs, such as "cut-before".
std::string_view nameOf(Effect effect);
// Acts on a connection, before anything is known of a request.
bool actsOnConnection(Effect effect);
// Was to act so many times, and has.
bool isSpent(const Fault& fault);

// Throw std::invalid_argument with a text for people.
Fault parseFault(const nlohmann::json& object);
// EFFECT[,KEY=VALUE...], as on the command line. A key that is none of a fault's is a member of the
// body.
Fault parseFaultSpec(std::string_view spec);

nlohmann::json toJson(const Fault& fault);

}  // namespace zln::collector
