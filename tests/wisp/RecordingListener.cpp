#include "RecordingListener.h"

#include "SyntheticContent.h"

#include <algorithm>

namespace wisptest {

void RecordingListener::VerifySynthetic(const std::string& path) {
  verify_ = true;
  seed_ = dlorigin::SyntheticSeed(path);
}

void RecordingListener::MarkCancelled() {
  std::lock_guard<std::mutex> lock(mutex_);
  cancelled_ = true;
}

bool RecordingListener::WaitForEnd(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return ended_; });
}

bool RecordingListener::WaitForBytes(int64_t atLeast, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, timeout, [this, atLeast] { return bytes_ >= atLeast || ended_; });
  return bytes_ >= atLeast;
}

void RecordingListener::RecordLocked(Event event) {
  if (cancelled_) ++callbacksAfterCancel_;
  const std::thread::id thread = std::this_thread::get_id();
  if (thread == forbiddenThread_) ++callbacksOnForbiddenThread_;
  if (std::find(callbackThreads_.begin(), callbackThreads_.end(), thread) == callbackThreads_.end()) {
    callbackThreads_.push_back(thread);
  }
  if (ended_ && orderProblem_.empty()) orderProblem_ = "a callback after the end";
  bool responded = false;
  for (Event earlier : events_) responded = responded || earlier == Event::kResponse;
  if (event == Event::kResponse && responded && orderProblem_.empty()) orderProblem_ = "two responses";
  if (event == Event::kBytes && !responded && orderProblem_.empty()) orderProblem_ = "bytes before the response";
  if (event == Event::kComplete && !responded && orderProblem_.empty()) orderProblem_ = "complete without a response";
  // Runs of body blocks are kept as one entry, so that the record stays small.
  if (event != Event::kBytes || events_.empty() || events_.back() != Event::kBytes) events_.push_back(event);
  if (event == Event::kError || event == Event::kComplete) ended_ = true;
}

template <typename Update>
void RecordingListener::Record(Event event, Update update) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    RecordLocked(event);
    update();
  }
  changed_.notify_all();
}

void RecordingListener::OnResponse(wisp::http::IRequestCall*, std::shared_ptr<wisp::http::Response> response) {
  Record(Event::kResponse, [&] { response_ = std::move(response); });
}

void RecordingListener::OnBytes(wisp::http::IRequestCall* call, const uint8_t* data, size_t length) {
  int64_t total = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    RecordLocked(Event::kBytes);
    if (verify_ && response_ != nullptr) {
      uint64_t offset = static_cast<uint64_t>(response_->RangeStart() + bytes_);
      size_t first = dlorigin::FirstSyntheticMismatch(seed_, offset, data, length);
      if (first != length) ++mismatches_;
    }
    if (keepBody_) body_.append(reinterpret_cast<const char*>(data), length);
    bytes_ += static_cast<int64_t>(length);
    total = bytes_;
  }
  changed_.notify_all();
  if (bytesHook_) bytesHook_(call, total);
}

void RecordingListener::OnError(wisp::http::IRequestCall*, const wisp::http::Error& error) {
  Record(Event::kError, [&] { error_ = error; });
}

void RecordingListener::OnComplete(wisp::http::IRequestCall*) {
  Record(Event::kComplete, [&] { completed_ = true; });
}

void RecordingListener::OnStatusPhase(wisp::http::IRequestCall*, wisp::http::StatusPhase phase, int64_t value) {
  Record(Event::kPhase, [&] { phases_.emplace_back(phase, value); });
}

}  // namespace wisptest
