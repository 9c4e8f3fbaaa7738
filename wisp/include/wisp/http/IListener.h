// How a request reports back to its caller.
//
// Threads: every method is called on the library's network thread, one call
// at a time per request, never synchronously inside IRequestCall::Start,
// Cancel, Pause or Resume. Do not block in them for long: the thread serves
// every request of the client.
//
// Order, per request:
//   OnStatusPhase*  (progress notes; may come at any point before the end)
//   OnResponse      (at most once: the final response after redirects, 2xx)
//   OnBytes*        (the body, in order, only after OnResponse)
//   then exactly one of OnComplete (all of the body arrived) or OnError.
// OnError may come without OnResponse (DNS, connect, HTTP status, range
// failures) or after some OnBytes (connection lost, stall time-out).
// A request cancelled by its caller ends with no callback at all.
//
// End of data: OnComplete means the whole body arrived: as many bytes as the
// response announced (Content-Length or Content-Range), or, for a body of
// unknown length, everything up to the server's end marker. A body cut short
// ends with OnError (kConnectionLost), never with OnComplete. A HEAD request,
// or an empty body, goes straight from OnResponse to OnComplete.
//
// A listener may call its request's Cancel, Pause and Resume from inside these
// methods.
#ifndef WISP_HTTP_ILISTENER_H_
#define WISP_HTTP_ILISTENER_H_

#include <wisp/WispExport.h>
#include <wisp/http/Error.h>
#include <wisp/http/Response.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace wisp {
namespace http {

class IRequestCall;

enum class StatusPhase : int32_t {
  kDnsResolved = 1,      // value: microseconds since Start
  kConnected = 2,        // value: microseconds since Start
  kTlsHandshaken = 3,    // value: microseconds since Start
  kFirstByte = 4,        // value: microseconds since Start
  kRedirected = 5,       // value: redirects followed so far
  kRetrying = 6,         // value: the attempt about to start (1 = first retry)
};

class WISP_EXPORT IListener {
 public:
  virtual ~IListener();

  virtual void OnResponse(IRequestCall* call, std::shared_ptr<Response> response) = 0;
  // `data` is valid only during the call: copy what you keep.
  virtual void OnBytes(IRequestCall* call, const uint8_t* data, size_t length) = 0;
  virtual void OnError(IRequestCall* call, const Error& error) = 0;
  virtual void OnComplete(IRequestCall* call) = 0;
  virtual void OnStatusPhase(IRequestCall* call, StatusPhase phase, int64_t value) = 0;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_ILISTENER_H_
