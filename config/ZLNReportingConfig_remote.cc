#include "config/ZLNReportingConfig.h"
#include "platform/json.h"
#include "support/ZLNReportingUtils.h"
#include "support/endpoints.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {

Dictionary ZLNReportingConfig::configParameters() {
  Dictionary parameters;
  parameters.setIfPresent("ConfigSerializationKeyAppVersion",
                          environment().deviceFacts.mainBundleValue(kBundleShortVersionKey));
  parameters.setIfPresent("ConfigSerializationKeySDKVersion",
                          ZLNReportingUtils::getReportingVersion());
  return parameters;
}

void ZLNReportingConfig::updateConfigFromRemote() {
  // Before anything is sent: whatever becomes of this fetch, the next is due one interval later.
  setConfigUpdateTime(environment().clock.now());
  saveConfig();

  HttpRequest request;
  request.method = "POST";
  request.url = kConfigUrl;
  const Dictionary parameters = configParameters();
  logDebug("config params: %@", parameters);
  if (!json::isValidObject(parameters)) {
    logError("config params are invalid: %@", parameters);
    return;
  }
  Error error;
  std::optional<std::string> body = json::serialize(parameters, &error);
  if (!body) {
    logError("unable to serialize config params with %@", error);
    return;
  }
  request.headers.emplace_back("Content-Length", std::to_string(body->size()));
  request.body = std::move(*body);
  environment().http.upload(
      std::move(request),
      [self = shared_from_this()](const HttpReply& reply) { self->receiveRemoteConfig(reply); });
}

void ZLNReportingConfig::receiveRemoteConfig(const HttpReply& reply) {
  if (reply.error) {
    logWarn("failed to update config settings with %@", reply.error);
    return;
  }
  Error error;
  const std::optional<Value> parsed = json::parse(reply.body, &error);
  if (!parsed) {
    logWarn("unable to parse config json response with %@", error);
    return;
  }
  const Dictionary* dictionary = parsed->dictionary();
  if (dictionary == nullptr) {
    logWarn("invalid config data response");
    return;
  }
  if (isFileUnread_.get()) {
    const std::optional<Date> updated = configUpdateTime();
    loadStoredConfig();
    setConfigUpdateTime(updated);
  }
  if (processConfigDictionary(dictionary)) {
    saveConfig();
  } else {
    logWarn("unable to process incoming config: %@", *dictionary);
  }
}

}  // namespace zln
