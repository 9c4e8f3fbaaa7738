#include "Utils/looper/MessageLooper.h"

#include <utility>

#include <wisp/Mutex.h>

#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

MessageLooper::MessageLooper(std::string name) : MessageLooper(std::move(name), LibraryContext::Current().clock()) {}

MessageLooper::MessageLooper(std::string name, Clock& clock)
    : name_(std::move(name)), core_(std::make_shared<Core>(clock)) {}

MessageLooper::~MessageLooper() {
  Stop();
  // Destroyed by its own last task: nobody can join; the thread holds the core
  // and finishes on its own.
  if (thread_.joinable()) thread_.detach();
}

bool MessageLooper::Start() {
  wisp::MutexLock lock(&core_->mutex);
  if (core_->state != State::kIdle) return false;
  core_->state = State::kRunning;
  thread_ = std::thread(&MessageLooper::Run, core_, name_);
  core_->threadId = thread_.get_id();
  return true;
}

bool MessageLooper::Post(Task task) { return Enqueue(std::move(task), core_->clock.Now()); }

bool MessageLooper::PostDelayed(Task task, std::chrono::milliseconds delay) {
  return Enqueue(std::move(task), core_->clock.Now() + delay);
}

bool MessageLooper::Enqueue(Task task, Clock::TimePoint due) {
  {
    wisp::MutexLock lock(&core_->mutex);
    if (core_->state != State::kRunning) return false;
    core_->pending.push(PendingTask{due, core_->nextSequence++, std::move(task)});
  }
  core_->wakeUp.notify_one();
  return true;
}

void MessageLooper::Stop() {
  TaskQueue dropped;
  {
    wisp::MutexLock lock(&core_->mutex);
    if (core_->state == State::kStopped) return;
    core_->state = State::kStopped;
    // Dropped tasks are destroyed outside the lock: their captures may own
    // objects whose destructors post to this looper.
    std::swap(dropped, core_->pending);
  }
  core_->wakeUp.notify_all();
  if (thread_.joinable() && !IsLooperThread()) thread_.join();
}

bool MessageLooper::IsLooperThread() const {
  wisp::MutexLock lock(&core_->mutex);
  return std::this_thread::get_id() == core_->threadId;
}

bool MessageLooper::Core::TakeNextDueTask(Task* task) {
  wisp::MutexLock lock(&mutex);
  while (state == State::kRunning) {
    if (pending.empty()) {
      wakeUp.wait(lock);
      continue;
    }
    Clock::TimePoint due = pending.top().due;
    if (due > clock.Now()) {
      clock.WaitUntil(wakeUp, lock, due);
      continue;
    }
    // priority_queue::top is const; the task is moved out just before pop.
    *task = std::move(const_cast<PendingTask&>(pending.top()).task);
    pending.pop();
    return true;
  }
  return false;
}

void MessageLooper::Run(std::shared_ptr<Core> core, std::string name) {
  DL_LOGD << "looper started:" << name;
  Task task;
  while (core->TakeNextDueTask(&task)) {
    task();
    task = nullptr;
  }
  DL_LOGD << "looper finished:" << name;
}

}  // namespace downloader
