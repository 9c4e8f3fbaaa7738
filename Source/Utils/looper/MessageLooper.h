// A thread with an ordered queue of tasks: immediate tasks run in the order
// they were posted; a delayed task runs when its time has come, before any task
// that became due after it. A task may post further tasks.
//
// Thread rules: every method may be called from any thread. `Stop` joins the
// looper thread and drops what is still pending; called from a task of this
// looper it only marks the stop (a thread cannot join itself) and the thread
// ends after that task. Members below `mutex_` are guarded by it; `thread_` is
// touched only by Start, Stop and the destructor, which the owner must not run
// concurrently with each other. The queue lives in a `Core` shared with the
// thread, so a looper may even be destroyed by its own last task: the thread
// then finishes on its own without touching the destroyed object.
#ifndef DOWNLOADER_UTILS_LOOPER_MESSAGELOOPER_H_
#define DOWNLOADER_UTILS_LOOPER_MESSAGELOOPER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <queue>
#include <string>
#include <thread>
#include <vector>

#include <wisp/Mutex.h>

#include "Utils/clock/Clock.h"

namespace downloader {

class MessageLooper {
 public:
  using Task = std::function<void()>;
  // Delayed tasks fall due on `clock` (by default the current library
  // context's), which must outlive the looper's thread.
  explicit MessageLooper(std::string name);
  MessageLooper(std::string name, Clock& clock);
  ~MessageLooper();

  MessageLooper(const MessageLooper&) = delete;
  MessageLooper& operator=(const MessageLooper&) = delete;

  // Starts the thread. False if it was started before (a stopped looper is not
  // restarted).
  bool Start();

  // False, and the task is dropped, when the looper is not running.
  bool Post(Task task);
  bool PostDelayed(Task task, std::chrono::milliseconds delay);

  void Stop();

  bool IsLooperThread() const;
  const std::string& name() const { return name_; }

 private:
  struct PendingTask {
    Clock::TimePoint due;
    uint64_t sequence;
    Task task;
  };
  struct RunsLater {
    bool operator()(const PendingTask& a, const PendingTask& b) const {
      if (a.due != b.due) return a.due > b.due;
      return a.sequence > b.sequence;
    }
  };
  using TaskQueue = std::priority_queue<PendingTask, std::vector<PendingTask>, RunsLater>;
  enum class State { kIdle, kRunning, kStopped };

  struct Core {
    explicit Core(Clock& clock) : clock(clock) {}

    Clock& clock;
    wisp::Mutex mutex;
    wisp::CondVar wakeUp;
    State state GUARDED_BY(mutex) = State::kIdle;
    uint64_t nextSequence GUARDED_BY(mutex) = 0;
    TaskQueue pending GUARDED_BY(mutex);
    std::thread::id threadId GUARDED_BY(mutex);

    // Waits until the earliest task is due; false once stopped.
    bool TakeNextDueTask(Task* task);
  };

  static void Run(std::shared_ptr<Core> core, std::string name);
  bool Enqueue(Task task, Clock::TimePoint due);

  // Constant after construction.
  const std::string name_;
  const std::shared_ptr<Core> core_;

  // Touched only by Start, Stop and the destructor.
  std::thread thread_;
};

}  // namespace downloader

#endif  // DOWNLOADER_UTILS_LOOPER_MESSAGELOOPER_H_
