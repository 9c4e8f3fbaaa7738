#include "winhttp/WinHttpTransport.h"

#include "Logging.h"
#include "winhttp/WinHttpCall.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {
namespace {

constexpr int kLogError = 4;
constexpr wchar_t kUserAgent[] = L"wisp/1";
constexpr std::chrono::milliseconds kMaxWait{1000};
// How long a stop waits for WinHTTP to report the handles it closed. Some
// implementations (wine) report a handle closed with an operation pending
// only when the operation ends, which may be never.
constexpr std::chrono::seconds kCloseWait{1};
constexpr DWORD kNotifications =
    WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_RESOLVE_NAME |
    WINHTTP_CALLBACK_FLAG_CONNECT_TO_SERVER | WINHTTP_CALLBACK_FLAG_REDIRECT |
    WINHTTP_CALLBACK_FLAG_SECURE_FAILURE | WINHTTP_CALLBACK_FLAG_HANDLES;

void StartWinsockOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
  });
}

}  // namespace

std::shared_ptr<Transport> CreatePlatformTransport() { return WinHttpTransport::Create(); }

std::vector<std::string> ResolveHost(const std::string& host) {
  StartWinsockOnce();
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* results = nullptr;
  std::vector<std::string> addresses;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &results) != 0) return addresses;
  for (addrinfo* entry = results; entry != nullptr; entry = entry->ai_next) {
    char text[NI_MAXHOST] = {};
    if (getnameinfo(entry->ai_addr, static_cast<socklen_t>(entry->ai_addrlen), text, sizeof(text), nullptr, 0,
                    NI_NUMERICHOST) != 0) {
      continue;
    }
    AddAddress(&addresses, text);
  }
  freeaddrinfo(results);
  PutIPv4First(&addresses);
  return addresses;
}

std::shared_ptr<WinHttpTransport> WinHttpTransport::Create() {
  std::shared_ptr<WinHttpTransport> transport(new WinHttpTransport());
  transport->thread_ = std::thread([raw = transport.get()] { raw->Run(); });
  return transport;
}

WinHttpTransport::WinHttpTransport() {
  session_ = WinHttpOpen(kUserAgent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                         WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC);
  if (session_ == nullptr) {
    WISP_LOG(kLogError) << "WinHttpOpen failed: " << GetLastError();
    return;
  }
  WinHttpSetStatusCallback(session_, &WinHttpCall::StatusCallback, kNotifications, 0);
}

WinHttpTransport::~WinHttpTransport() {
  Shutdown();
  inbox_->Close();
  if (session_ != nullptr) WinHttpCloseHandle(session_);
}

std::shared_ptr<http::IRequestCall> WinHttpTransport::CreateCall(RequestPlan spec) {
  return std::make_shared<WinHttpCall>(weak_from_this(), this, inbox_, std::move(spec));
}

void WinHttpTransport::Shutdown() {
  {
    wisp::MutexLock lock(&mutex_);
    if (joined_) return;
    joined_ = true;
  }
  inbox_->Stop();
  if (thread_.joinable()) thread_.join();
}

void WinHttpTransport::Track(std::shared_ptr<WinHttpCall> call) {
  WinHttpCall* key = call.get();
  active_.emplace(key, std::move(call));
}

void WinHttpTransport::Untrack(WinHttpCall* call) { active_.erase(call); }

void WinHttpTransport::Run() {
  while (RunQueued(std::min(NextDeadline(), Clock::now() + kMaxWait), false)) CheckDeadlines();
  EndAllCalls();
}

bool WinHttpTransport::RunQueued(Clock::time_point deadline, bool draining) {
  std::deque<WinHttpInbox::Item> ready;
  bool running = inbox_->Take(deadline, draining, &ready);
  for (WinHttpInbox::Item& item : ready) item();
  return running;
}

WinHttpTransport::Clock::time_point WinHttpTransport::NextDeadline() const {
  Clock::time_point next = Clock::time_point::max();
  for (const auto& entry : active_) next = std::min(next, entry.second->NextDeadline());
  return next;
}

void WinHttpTransport::CheckDeadlines() {
  Clock::time_point now = Clock::now();
  std::vector<std::shared_ptr<WinHttpCall>> due;
  for (const auto& entry : active_) {
    if (entry.second->NextDeadline() <= now) due.push_back(entry.second);
  }
  for (const std::shared_ptr<WinHttpCall>& call : due) call->CheckDeadlines(now);
}

void WinHttpTransport::EndAllCalls() {
  // Tasks posted before the stop still run, so that a call started just
  // before it ends like every other running call.
  RunQueued(Clock::now(), true);
  std::vector<std::shared_ptr<WinHttpCall>> calls;
  for (const auto& entry : active_) calls.push_back(entry.second);
  for (const std::shared_ptr<WinHttpCall>& call : calls) call->AbortForShutdown();
  // WinHTTP reports each closed handle; until then it may still call back
  // with the call's address, so the calls are kept until it has.
  Clock::time_point giveUp = Clock::now() + kCloseWait;
  while (!active_.empty() && Clock::now() < giveUp) RunQueued(giveUp, true);
  if (!active_.empty()) {
    // Their late callbacks reach the closed inbox, never this transport.
    WISP_LOG(kLogError) << active_.size() << " requests still held by WinHTTP at shutdown; kept alive";
    for (auto& entry : active_) new std::shared_ptr<WinHttpCall>(std::move(entry.second));
    active_.clear();
  }
}

}  // namespace internal
}  // namespace wisp
