#pragma once

#include <condition_variable>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "collector/fault.h"

namespace zln::collector {

// The faults that are switched on, in the order in which they were. Any thread may call it.
class FaultList {
 public:
  // Each type has a port of its own, or all share one. Only then is the type of a connection known
  // before its request.
  explicit FaultList(bool separatePorts) : separatePorts_(separatePorts) {}

  // The fault with its identifier. Throws std::invalid_argument with a text for people when it
  // cannot act here.
  Fault add(Fault fault);
  // False when there is none.
  bool remove(int id);
  void clear();
  // As the interface for programs shows it.
  nlohmann::json list() const;

  // The first fault that applies, counted off. `type` is that of the port, if it has one.
  std::optional<Fault> takeForConnection(std::optional<std::string_view> type);
  // The same for a request. `body` is null when it is no JSON object.
  std::optional<Fault> takeForRequest(std::string_view type, const nlohmann::json& body);

  // Waits for so long, or until the fault is switched off. False when `endHolds` came first.
  bool hold(int id, double seconds);
  // Ends all waiting, now and later.
  void endHolds();

 private:
  void makeRoom();
  bool isListed(int id) const;
  template <typename Applies>
  std::optional<Fault> takeFirst(const Applies& applies);

  const bool separatePorts_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Fault> faults_;
  bool holdsEnded_ = false;
  int lastId_ = 0;
};

}  // namespace zln::collector
