#pragma once

#include <cfloat>
#include <cstddef>
#include <functional>
#include <map>
#include <vector>

#include "platform/background_tasks.h"
#include "testkit/fake_dispatch.h"
#include "testkit/journal.h"

namespace zln {

// A system whose grants of background time a test makes, limits and withdraws.
class FakeBackgroundTasks : public BackgroundTasks {
 public:
  explicit FakeBackgroundTasks(FakeDispatch& dispatch, Journal* journal = nullptr)
      : dispatch_(dispatch), journal_(journal) {}

  bool offersMultitaskingSupport() override { return offersMultitasking; }
  bool offersBegin() override { return offersBeginTask; }
  bool offersEnd() override { return offersEndTask; }
  // Identifiers count up from 1.
  BackgroundTaskId begin(std::function<void()> expired) override;
  void end(BackgroundTaskId id) override;
  double remaining() override;

  bool offersMultitasking = true;
  bool offersBeginTask = true;
  bool offersEndTask = true;
  double remainingTime = DBL_MAX;
  // Makes the next begin(), and no later one, answer kBackgroundTaskInvalid.
  bool nextInvalid = false;

  // Tells the task, as the main thread, that its time is up. It stays open until it is ended. A
  // task that is not open hears nothing.
  void expire(BackgroundTaskId id);

  // The tasks that run, in the order of their identifiers.
  std::vector<BackgroundTaskId> open() const;
  // Every identifier that was given to end(), in order, those that it ignored included.
  const std::vector<BackgroundTaskId>& ended() const { return ended_; }
  // How many times begin() has been called.
  std::size_t begun() const { return begun_; }

  // Forgets the open tasks, as the system does when the process is gone.
  void forgetOpen() { open_.clear(); }

 private:
  FakeDispatch& dispatch_;
  Journal* const journal_;
  std::map<BackgroundTaskId, std::function<void()>> open_;
  std::vector<BackgroundTaskId> ended_;
  std::size_t begun_ = 0;
  BackgroundTaskId lastId_ = kBackgroundTaskInvalid;
};

}  // namespace zln
