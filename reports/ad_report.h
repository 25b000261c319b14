#pragma once

#include <memory>
#include <optional>
#include <string>

#include "reports/ZLNReportBase.h"

namespace zln {

// What the two reports about an ad attempt have in common. Fresh and restored reports are built by
// the same code; device, platform and bundle are always those of the sending installation.
class AdReport : public ZLNReportBase {
 public:
  std::optional<Dictionary> toDictionary() const override;

  // The identifier of the attempt.
  const std::optional<Value>& uuid() const { return uuid_; }
  const std::optional<Value>& network() const { return network_; }
  const std::optional<Value>& adType() const { return adType_; }
  const std::optional<std::string>& platform() const { return platform_; }
  const std::optional<std::string>& bundleId() const { return bundleId_; }
  const std::optional<std::string>& device() const { return device_; }
  bool filled() const { return filled_; }

 protected:
  // How the kinds differ.
  struct Kind {
    const char* url;
    const char* reportType;
  };

  // The dictionary of a new attempt, with an identifier of its own. Throws std::invalid_argument
  // when the network or the ad type is absent.
  static Dictionary creationDictionary(std::optional<std::string> network,
                                       std::optional<std::string> adType, bool filled);

  AdReport(const Kind& kind, const Dictionary& dictionary);

  // A stored value as it is, whatever its kind.
  static std::optional<Value> storedValue(const Dictionary& dictionary, const char* key);

  // Adds, before "fill", the keys that only one kind has.
  virtual void addKindKeys(Dictionary& dictionary) const;

 private:
  const Kind& kind_;
  std::optional<Value> uuid_;
  std::optional<Value> network_;
  std::optional<Value> adType_;
  std::optional<std::string> platform_;
  std::optional<std::string> bundleId_;
  std::optional<std::string> device_;
  bool filled_ = false;
};

}  // namespace zln
