// The outcome of a request that failed. Kind numbers are stable: callers map
// them to their own codes, so a kind is never renumbered.
#ifndef WISP_HTTP_ERROR_H_
#define WISP_HTTP_ERROR_H_

#include <wisp/WispExport.h>

#include <cstdint>
#include <string>

namespace wisp {
namespace http {

enum class ErrorKind : int32_t {
  kNone = 0,
  // The request could not be built: no or malformed URL, unsupported scheme.
  kInvalidRequest = 1,
  // The host name did not resolve.
  kDnsFailure = 2,
  // No connection could be opened (refused, unreachable).
  kConnectFailure = 3,
  // The TLS handshake or the certificate check failed.
  kTlsFailure = 4,
  // The final response's status is not a success (2xx). `status` holds it;
  // `detail` holds the response's "X-Error-Code" header when it has one (a
  // CDN's sub-status such as "403605").
  kHttpStatus = 5,
  // More redirects than a request follows (5).
  kTooManyRedirects = 6,
  // A range was asked and the server did not honour it: it answered 200 with
  // the whole resource, or its Content-Range starts elsewhere. No byte is
  // delivered in that case, so bytes never land at a wrong offset.
  kRangeNotHonoured = 7,
  // The connection broke: reset or closed before the announced end of the body.
  kConnectionLost = 8,
  // The open time-out passed before the response, or no byte came for the
  // stall time-out while the body was flowing.
  kTimeout = 9,
  // The request's client shut down while the request was running. A call
  // cancelled by its caller reports nothing at all (see IRequestCall::Cancel).
  kCancelled = 10,
  // Anything else the transport reports (protocol violation, out of memory).
  kInternal = 11,
  // The response is beyond what a client keeps: a head above 256 KiB, or a
  // size (Content-Length, Content-Range) beyond any file. Not retried: the
  // same server would answer the same.
  kResponseRefused = 12,
};

// Short lower-case name of a kind: "none", "http status", "timeout", ...
WISP_EXPORT const char* ErrorKindName(ErrorKind kind);

struct WISP_EXPORT Error {
  ErrorKind kind = ErrorKind::kNone;
  // HTTP status of the final response when there was one, else 0.
  int32_t status = 0;
  // Machine-readable detail: the "X-Error-Code" value for kHttpStatus, the
  // transport's own code (as text) for transport failures.
  std::string detail;
  // Why, in words a host can show its user, worded alike by both backends
  // for the common failures: "could not resolve host 'x'", "connection
  // refused (127.0.0.1:1)", "certificate verify failed: ...", "HTTP 401",
  // "timed out after 5000 ms waiting for the response".
  std::string message;

  bool IsError() const { return kind != ErrorKind::kNone; }
  // One line for logs: "kind:5(http status) status:403 detail:403605 message:...".
  std::string String() const;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_ERROR_H_
