#pragma once

#include "platform/notification_center.h"
#include "testkit/fake_dispatch.h"

namespace zln {

// The application whose life a test plays. Each call announces one event, as the main thread, and
// returns when all observers have been told.
class FakeApp {
 public:
  FakeApp(NotificationCenter& center, FakeDispatch& dispatch)
      : center_(center), dispatch_(dispatch) {}

  void resignActive() { post(Notification::applicationWillResignActive); }
  void becomeActive() { post(Notification::applicationDidBecomeActive); }
  void enterBackground() { post(Notification::applicationDidEnterBackground); }
  void enterForeground() { post(Notification::applicationWillEnterForeground); }
  void terminate() { post(Notification::applicationWillTerminate); }

 private:
  void post(Notification notification) {
    dispatch_.asMain([&] { center_.post(notification); });
  }

  NotificationCenter& center_;
  FakeDispatch& dispatch_;
};

}  // namespace zln
