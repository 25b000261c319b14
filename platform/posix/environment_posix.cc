#include "platform/posix/environment_posix.h"

#include <unistd.h>

#include <functional>
#include <memory>
#include <utility>

#include "platform/path.h"
#include "platform/posix/process_environment.h"

namespace zln {

namespace {

constexpr char kUnknownVersion[] = "0";

}  // namespace

PortParts::PortParts()
    : pool([this](std::function<void()> work) { dispatch.mainThreadBeside(std::move(work)); }),
      dispatch(pool),
      http(pool,
           [this, name = executableName()] {
             return userAgentText(name, application.shortVersion().value_or(kUnknownVersion),
                                  ZLN_REPORTING_VERSION);
           }),
      files(
          [this] {
            return appendPathComponent(dataFolder(&environmentVariable), application.folderName());
          },
          [this](std::function<void()> flush) { pool.runLater(std::move(flush)); }),
      userDefaults(files,
                   [this] {
                     return appendPathComponent(configFolder(&environmentVariable),
                                                application.folderName() + ".plist");
                   }),
      deviceFacts(application, {.libraryVersion = ZLN_REPORTING_VERSION}),
      backgroundTasks(dispatch),
      logSink(clock, executableName(), STDERR_FILENO),
      environment{clock,       dispatch,        http,  files,   userDefaults,
                  deviceFacts, backgroundTasks, uuids, logSink, notificationCenter} {}

PortParts& portParts() {
  static PortParts& parts = *new PortParts;
  return parts;
}

Environment& portEnvironment() { return portParts().environment; }

}  // namespace zln
