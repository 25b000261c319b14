#include <optional>
#include <string>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "platform/forked_process.h"
#include "platform/notification_center.h"
#include "platform/posix/environment_posix.h"
#include "platform/utf8.h"

namespace zln {

namespace {

void postOnMainThread(Notification notification) {
  if (isForkedProcess()) return;
  PortParts& parts = portParts();
  parts.dispatch.mainSync([&parts, notification] { parts.notificationCenter.post(notification); });
}

bool isComplete(const ZLNHostBackgroundTaskHooks& hooks) {
  return hooks.begin != nullptr && hooks.end != nullptr && hooks.remaining != nullptr;
}

}  // namespace

}  // namespace zln

void ZLNHostSetApplicationInfo(const char* bundleIdentifier, const char* shortVersion) {
  if (zln::isForkedProcess()) return;
  zln::PortParts& parts = zln::portParts();
  if (!parts.application.set(zln::sanitizedText(bundleIdentifier),
                             zln::sanitizedText(shortVersion))) {
    ZLNLogError(
        "Files stay in %@: call ZLNHostSetApplicationInfo before ZLNInitializeReporting, and with "
        "one identifier",
        parts.files.applicationSupportPath().c_str());
  }
}

void ZLNHostApplicationWillResignActive(void) {
  zln::postOnMainThread(zln::Notification::applicationWillResignActive);
}

void ZLNHostApplicationDidBecomeActive(void) {
  zln::postOnMainThread(zln::Notification::applicationDidBecomeActive);
}

void ZLNHostApplicationWillEnterForeground(void) {
  zln::postOnMainThread(zln::Notification::applicationWillEnterForeground);
}

void ZLNHostApplicationDidEnterBackground(void) {
  zln::postOnMainThread(zln::Notification::applicationDidEnterBackground);
}

void ZLNHostApplicationWillTerminate(void) {
  zln::postOnMainThread(zln::Notification::applicationWillTerminate);
}

void ZLNHostSetBackgroundTaskHooks(const ZLNHostBackgroundTaskHooks* hooks) {
  if (zln::isForkedProcess()) return;
  if (hooks == nullptr) {
    zln::portParts().backgroundTasks.setHooks(std::nullopt);
  } else if (zln::isComplete(*hooks)) {
    zln::portParts().backgroundTasks.setHooks(*hooks);
  } else {
    ZLNLogError("Background task hooks ignored, one of begin, end and remaining is missing");
  }
}

void ZLNHostBackgroundTaskWillExpire(uint64_t identifier) {
  if (zln::isForkedProcess()) return;
  zln::portParts().backgroundTasks.willExpire(identifier);
}

void ZLNHostSetLogSink(void (*sink)(const char* line, void* context), void* context) {
  if (zln::isForkedProcess()) return;
  zln::portParts().logSink.setHostSink(sink, context);
}
