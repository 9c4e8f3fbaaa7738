#include "curl/CurlTransport.h"

#include "Logging.h"
#include "curl/CurlCall.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {
namespace {

constexpr int kLogError = 4;
// Upper bound of one wait, so that a deadline computed before a posted task
// changed things is re-evaluated soon enough.
constexpr int kMaxPollMs = 1000;

void InitCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace

std::vector<std::string> ResolveHost(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* results = nullptr;
  std::vector<std::string> addresses;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &results) != 0) return addresses;
  for (addrinfo* entry = results; entry != nullptr; entry = entry->ai_next) {
    char text[INET6_ADDRSTRLEN] = {};
    if (getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof(text), nullptr, 0,
                    NI_NUMERICHOST) != 0) {
      continue;
    }
    AddAddress(&addresses, text);
  }
  freeaddrinfo(results);
  PutIPv4First(&addresses);
  return addresses;
}

std::shared_ptr<CurlTransport> CurlTransport::Create() {
  InitCurlOnce();
  std::shared_ptr<CurlTransport> transport(new CurlTransport());
  transport->thread_ = std::thread([raw = transport.get()] { raw->Run(); });
  return transport;
}

CurlTransport::CurlTransport()
    : multi_(curl_multi_init()), callsInProgress_(std::make_shared<std::atomic<int32_t>>(0)) {}

CurlTransport::~CurlTransport() {
  Shutdown();
  curl_multi_cleanup(multi_);
}

std::shared_ptr<http::IRequestCall> CurlTransport::CreateCall(RequestPlan spec) {
  return std::make_shared<CurlCall>(weak_from_this(), this, callsInProgress_, std::move(spec));
}

void CurlTransport::Shutdown() {
  {
    wisp::MutexLock lock(&mutex_);
    if (joined_) return;
    stopping_ = true;
    joined_ = true;
  }
  curl_multi_wakeup(multi_);
  if (thread_.joinable()) thread_.join();
}

bool CurlTransport::Post(std::function<void()> task) {
  {
    wisp::MutexLock lock(&mutex_);
    if (stopping_) return false;
    tasks_.push_back(std::move(task));
  }
  curl_multi_wakeup(multi_);
  return true;
}

void CurlTransport::Track(std::shared_ptr<CurlCall> call) {
  CurlCall* key = call.get();
  active_.emplace(key, std::move(call));
}

void CurlTransport::Untrack(CurlCall* call) { active_.erase(call); }

void CurlTransport::Run() {
  while (RunPostedTasks()) {
    int running = 0;
    CURLMcode code = curl_multi_perform(multi_, &running);
    if (code != CURLM_OK) {
      WISP_LOG(kLogError) << "curl_multi_perform: " << curl_multi_strerror(code);
    }
    ReapFinishedTransfers();
    CheckDeadlines();
    curl_multi_poll(multi_, nullptr, 0, PollTimeoutMs(), nullptr);
  }
  EndAllCalls();
}

bool CurlTransport::RunPostedTasks() {
  std::vector<std::function<void()>> tasks;
  bool stopping = false;
  {
    wisp::MutexLock lock(&mutex_);
    tasks.swap(tasks_);
    stopping = stopping_;
  }
  for (std::function<void()>& task : tasks) task();
  return !stopping;
}

void CurlTransport::ReapFinishedTransfers() {
  int queued = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
    if (message->msg != CURLMSG_DONE) continue;
    CURLcode result = message->data.result;
    CurlCall* raw = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &raw);
    auto found = active_.find(raw);
    if (found == active_.end()) continue;
    std::shared_ptr<CurlCall> call = found->second;
    call->OnTransferDone(result);
  }
}

void CurlTransport::CheckDeadlines() {
  if (active_.empty()) return;
  CurlCall::Clock::time_point now = CurlCall::Clock::now();
  std::vector<std::shared_ptr<CurlCall>> due;
  for (const auto& entry : active_) {
    if (entry.second->NextDeadline() <= now) due.push_back(entry.second);
  }
  for (const std::shared_ptr<CurlCall>& call : due) call->CheckDeadlines(now);
}

int CurlTransport::PollTimeoutMs() const {
  CurlCall::Clock::time_point now = CurlCall::Clock::now();
  CurlCall::Clock::time_point next = now + std::chrono::milliseconds(kMaxPollMs);
  for (const auto& entry : active_) next = std::min(next, entry.second->NextDeadline());
  if (next <= now) return 0;
  auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
  return static_cast<int>(wait) + 1;
}

void CurlTransport::EndAllCalls() {
  // Tasks posted before the stop still run, so that a call started just
  // before the stop ends like every other running call.
  std::vector<std::function<void()>> tasks;
  {
    wisp::MutexLock lock(&mutex_);
    tasks.swap(tasks_);
  }
  for (std::function<void()>& task : tasks) task();
  std::vector<std::shared_ptr<CurlCall>> calls;
  for (const auto& entry : active_) calls.push_back(entry.second);
  for (const std::shared_ptr<CurlCall>& call : calls) call->AbortForShutdown();
  active_.clear();
}

}  // namespace internal
}  // namespace wisp
