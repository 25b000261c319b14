#include "collector/fault_list.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "collector/json.h"

namespace zln::collector {
namespace {

constexpr std::size_t kMostFaults = 64;

// The n-th of a row of evenly distributed numbers from 0 up to 1: the same for the same seed.
double draw(std::uint64_t seed, std::int64_t n) {
  std::uint64_t mixed = seed + static_cast<std::uint64_t>(n) * 0x9E3779B97F4A7C15;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
  mixed ^= mixed >> 31;
  return std::ldexp(static_cast<double>(mixed >> 11), -53);
}

bool isFor(const Fault& fault, std::string_view type) {
  return fault.types.empty() || fault.types.contains(std::string(type));
}

bool matches(const Fault& fault, const nlohmann::json& body) {
  return !fault.match || std::ranges::all_of(fault.match->items(), [&](const auto& member) {
    const auto found = body.find(member.key());
    return found != body.end() && *found == member.value();
  });
}

// Counts the request, and off it when the fault acts on it.
bool countOff(Fault& fault) {
  ++fault.seen;
  if (fault.share && draw(fault.seed, fault.seen) >= *fault.share) return false;
  ++fault.hits;
  return true;
}

}  // namespace

Fault FaultList::add(Fault fault) {
  if (!separatePorts_ && actsOnConnection(fault.effect) && !fault.types.empty()) {
    throw std::invalid_argument(
        "this effect acts before the type of a request is known: with one port for all types it "
        "takes no \"types\" (--separate-ports gives each a port of its own)");
  }
  const std::lock_guard lock(mutex_);
  makeRoom();
  fault.id = ++lastId_;
  faults_.push_back(fault);
  return fault;
}

bool FaultList::remove(int id) {
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
  return std::erase_if(faults_, [id](const Fault& fault) { return fault.id == id; }) > 0;
}

void FaultList::clear() {
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
  faults_.clear();
}

nlohmann::json FaultList::list() const {
  const std::lock_guard lock(mutex_);
  nlohmann::json list = nlohmann::json::array();
  for (const Fault& fault : faults_) list.push_back(toJson(fault));
  return list;
}

std::optional<Fault> FaultList::takeForConnection(std::optional<std::string_view> type) {
  return takeFirst([&](const Fault& fault) {
    return actsOnConnection(fault.effect) && (!type || isFor(fault, *type));
  });
}

std::optional<Fault> FaultList::takeForRequest(std::string_view type, const nlohmann::json& body) {
  return takeFirst([&](const Fault& fault) {
    return !actsOnConnection(fault.effect) && isFor(fault, type) && matches(fault, body);
  });
}

bool FaultList::hold(int id, double seconds) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::duration<double>(seconds),
                    [&] { return holdsEnded_ || !isListed(id); });
  return !holdsEnded_;
}

void FaultList::endHolds() {
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
  holdsEnded_ = true;
}

// Faults that will act no more give way to new ones.
void FaultList::makeRoom() {
  if (faults_.size() < kMostFaults) return;
  std::erase_if(faults_, isSpent);
  if (faults_.size() >= kMostFaults) {
    throw std::invalid_argument("there are " + std::to_string(kMostFaults) +
                                " faults already: remove some");
  }
}

bool FaultList::isListed(int id) const {
  return std::ranges::find(faults_, id, &Fault::id) != faults_.end();
}

template <typename Applies>
std::optional<Fault> FaultList::takeFirst(const Applies& applies) {
  const std::lock_guard lock(mutex_);
  for (Fault& fault : faults_) {
    if (!isSpent(fault) && applies(fault) && countOff(fault)) return fault;
  }
  return std::nullopt;
}

}  // namespace zln::collector
