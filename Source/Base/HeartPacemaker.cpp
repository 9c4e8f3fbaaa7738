// HeartPacemaker: the owner's thread calls Start and Stop; beats run on the
// timer's thread. The timer is swapped in and out under mutex_, and a beat
// posts its successor under the same mutex, and only from the current timer's
// own thread, so neither a Stop nor a Start that has taken the timer away can
// race a beat into posting to it or to its replacement.
#include <downloader/Base/HeartPacemaker.h>
#include <wisp/Mutex.h>

#include <chrono>
#include <utility>

#include "Utils/log/LogMessage.h"
#include "Utils/looper/MessageLooper.h"

namespace downloader {
namespace {
std::atomic<HeartPacemaker::HeartbeatCallback> g_heartbeatCallback{nullptr};
}  // namespace

HeartPacemaker::HeartPacemaker() = default;

HeartPacemaker::~HeartPacemaker() = default;

std::shared_ptr<HeartPacemaker> HeartPacemaker::Create() {
  return std::shared_ptr<HeartPacemaker>(new HeartPacemaker());
}

void HeartPacemaker::SetHeartbeatCallback(HeartbeatCallback callback) { g_heartbeatCallback.store(callback); }

HeartbeatInfo HeartPacemaker::GetHeartbeatInfo(int32_t pid) {
  HeartbeatCallback callback = g_heartbeatCallback.load();
  if (callback == nullptr) return HeartbeatInfo();
  return callback(pid);
}

void HeartPacemaker::Start(const PacemakerParams& params) {
  DL_LOGI << "heart beat for pid:" << params.pid << ", sid:" << params.sid << " started";
  stopped_ = false;
  auto timer = std::make_shared<MessageLooper>("heartbeat");
  timer->Start();
  std::shared_ptr<MessageLooper> replaced = timer;
  {
    wisp::MutexLock lock(&mutex_);
    timer_.swap(replaced);
    params_ = params;
  }
  // Outside the lock: a beat of the replaced timer may be waiting for it in
  // ScheduleNext, where it finds itself replaced and posts nothing.
  if (replaced) replaced->Stop();
  std::shared_ptr<HeartPacemaker> self = shared_from_this();
  timer->PostDelayed([self, params] { Heartbeat(self, params); },
                     std::chrono::milliseconds(params.duration));
}

void HeartPacemaker::Heartbeat(std::shared_ptr<HeartPacemaker> self, PacemakerParams params) {
  DL_LOGD << "heart beating with pid:" << params.pid << ", sid:" << params.sid
          << ", duration:" << params.duration;
  HeartbeatInfo info = GetHeartbeatInfo(params.pid);
  if (!info.empty() && params.consumer) params.consumer(info);
  self->ScheduleNext(params);
}

void HeartPacemaker::ScheduleNext(const PacemakerParams& params) {
  wisp::MutexLock lock(&mutex_);
  if (stopped_ || !timer_ || !timer_->IsLooperThread()) return;
  std::shared_ptr<HeartPacemaker> self = shared_from_this();
  timer_->PostDelayed([self, params] { Heartbeat(self, params); },
                      std::chrono::milliseconds(params.duration));
}

void HeartPacemaker::Stop() {
  std::shared_ptr<MessageLooper> timer;
  PacemakerParams params;
  {
    wisp::MutexLock lock(&mutex_);
    if (!timer_) return;
    stopped_ = true;
    timer.swap(timer_);
    params = params_;
  }
  DL_LOGI << "heart beat for pid:" << params.pid << ", sid:" << params.sid << " stopped";
  // Outside the lock: a beat in progress may be waiting for it in ScheduleNext.
  timer->Stop();
}

}  // namespace downloader
