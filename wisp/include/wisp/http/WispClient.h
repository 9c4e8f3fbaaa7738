// The entry point: makes request calls that share the client's network
// threads, connection pools (keep-alive connections are reused across the
// client's requests; HTTP/2 is used where TLS negotiates it) and DNS caches.
// Each call runs on one thread: a few on POSIX, where a new call goes to the
// least busy one so that requests made one after another share connections.
//
// Threads: every method may be called from any thread.
//
// Every request follows up to 5 redirects and verifies TLS certificates.
#ifndef WISP_HTTP_WISPCLIENT_H_
#define WISP_HTTP_WISPCLIENT_H_

#include <wisp/WispExport.h>
#include <wisp/http/IRequestCall.h>
#include <wisp/http/Options.h>

#include <memory>
#include <string>
#include <vector>

namespace wisp {
namespace internal {
class Transport;
}  // namespace internal

namespace http {

class WISP_EXPORT WispClient {
 public:
  // The process-wide client. It lives until the process ends (it is never
  // destroyed, so that no thread is joined while a module unloads).
  static std::shared_ptr<WispClient> Default();
  // A client of its own, with its own threads and pools. Destroying it ends
  // its running requests with ErrorKind::kCancelled and joins its threads; do not
  // drop its last reference from inside one of its listeners.
  static std::shared_ptr<WispClient> Create();

  ~WispClient();
  WispClient(const WispClient&) = delete;
  WispClient& operator=(const WispClient&) = delete;

  // A new, not yet started call. Never null; an unusable request (no URL,
  // unknown scheme) fails with ErrorKind::kInvalidRequest once started.
  std::shared_ptr<IRequestCall> CreateRequestCaller(RequestType type, const Options& options);

  // Resolves `host` on the calling thread (blocking) to numeric addresses,
  // IPv4 first. Empty when the name does not resolve.
  std::vector<std::string> DnsLookup(const std::string& host);

 private:
  explicit WispClient(std::shared_ptr<internal::Transport> transport);

  // Constant after construction.
  const std::shared_ptr<internal::Transport> transport_;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_WISPCLIENT_H_
