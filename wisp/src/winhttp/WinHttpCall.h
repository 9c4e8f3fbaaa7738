// One request on the Windows backend: a WinHTTP request handle driven
// asynchronously. WinHTTP reports through StatusCallback on its own threads;
// the callback only copies the event to the transport's queue, and the
// network side (everything but the IRequestCall methods) runs on the
// transport's thread. The body is pulled one read at a time, which is also
// how Pause works: no read is issued while paused.
#ifndef WISP_SRC_WINHTTP_WINHTTPCALL_H_
#define WISP_SRC_WINHTTP_WINHTTPCALL_H_

#include "CallBase.h"
#include "winhttp/WinHttpInbox.h"

#include <windows.h>
#include <winhttp.h>

#include <memory>
#include <string>
#include <vector>

namespace wisp {
namespace internal {

class WinHttpTransport;

// What a status callback carries, copied out of WinHTTP's buffers.
struct WinHttpEvent {
  HINTERNET handle = nullptr;
  DWORD status = 0;
  DWORD length = 0;
  DWORD error = 0;
  std::wstring text;
};

class WinHttpCall : public CallBase {
 public:
  // `owner` is used on the network thread only, where it is alive;
  // `transport` is how callers reach it; `inbox` is where WinHTTP's events go.
  WinHttpCall(std::weak_ptr<WinHttpTransport> transport, WinHttpTransport* owner,
              std::shared_ptr<WinHttpInbox> inbox, RequestPlan spec);
  ~WinHttpCall() override;

  // The callback installed on the session; runs on WinHTTP's threads.
  static void CALLBACK StatusCallback(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID info,
                                      DWORD length);

  // --- Network thread.
  void OnEvent(const WinHttpEvent& event);
  void CheckDeadlines(Clock::time_point now);
  Clock::time_point NextDeadline() const;
  void AbortForShutdown();

 private:
  enum class Stage { kNotBegun, kTransferring, kBetweenAttempts, kDone };

  bool PostTask(std::function<void()> task) override;
  void Begin() override;
  void StopForCancel() override;
  void ApplyPause() override;
  std::shared_ptr<WinHttpCall> Self() { return std::static_pointer_cast<WinHttpCall>(shared_from_this()); }
  void StartAttempt();
  // Opens the connect and request handles of an attempt; false with GetLastError set.
  bool OpenRequest();
  // Per-request proxy and certificate settings; false when WinHTTP refuses them.
  bool ApplyProxyAndTls();
  void CloseHandles();
  void OnHeadersAvailable();
  // The body is pulled as: query what has arrived, read that, deliver it.
  void ReadNext();
  void OnDataAvailable(DWORD bytesAvailable);
  void OnReadComplete(DWORD bytesRead);
  void EndOfBody();
  void FailOrRetry(const http::Error& error);
  void Fail(const http::Error& error);
  void Complete();
  void Untrack();

  // Constant after construction.
  const std::weak_ptr<WinHttpTransport> transport_;
  WinHttpTransport* const owner_;
  const std::shared_ptr<WinHttpInbox> inbox_;

  // Network thread only.
  Stage stage_ = Stage::kNotBegun;
  HINTERNET connect_ = nullptr;
  HINTERNET request_ = nullptr;
  // Request handles opened and not yet reported closed by WinHTTP; the call
  // stays tracked until this is 0, since WinHTTP still holds its address.
  int openRequestHandles_ = 0;
  int32_t redirects_ = 0;
  bool connectedThisAttempt_ = false;
  std::string serverAddress_;
  // The request's URL, followed through the redirects seen so far.
  std::string effectiveUrl_;
  Clock::time_point attemptStart_;
  Clock::time_point lastProgress_;
  // Earliest time of the next read under a speed limit.
  Clock::time_point readAt_;
  // A query or read is outstanding with WinHTTP.
  bool readPending_ = false;
  bool readWanted_ = false;
  int64_t contentLength_ = -1;
  int64_t bodyBytes_ = 0;
  DWORD secureFailureFlags_ = 0;
  std::vector<uint8_t> buffer_;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_WINHTTP_WINHTTPCALL_H_
