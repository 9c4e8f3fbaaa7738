// The final response of a request (after redirects), as handed to
// IListener::OnResponse. Immutable once built, so it is shared freely between
// threads.
#ifndef WISP_HTTP_RESPONSE_H_
#define WISP_HTTP_RESPONSE_H_

#include <wisp/WispExport.h>
#include <wisp/http/Headers.h>

#include <cstdint>
#include <string>

namespace wisp {
namespace http {

class WISP_EXPORT Response {
 public:
  static constexpr int64_t kUnknownSize = -1;

  struct Fields {
    int32_t status = 0;
    Headers headers;
    int64_t fileSize = kUnknownSize;
    int64_t contentLength = kUnknownSize;
    int64_t rangeStart = 0;
    std::string effectiveUrl;
    std::string serverAddress;
  };

  explicit Response(Fields fields);

  int32_t Status() const { return fields_.status; }
  const Headers& GetHeaders() const { return fields_.headers; }
  // Size of the whole resource, also for a ranged (206) response: the total of
  // its Content-Range, else its Content-Length. kUnknownSize when the server
  // did not say (chunked body, "bytes a-b/*").
  int64_t FileSize() const { return fields_.fileSize; }
  // Bytes this response's body carries, or kUnknownSize.
  int64_t ContentLength() const { return fields_.contentLength; }
  // Offset in the resource of the body's first byte (0 unless ranged).
  int64_t RangeStart() const { return fields_.rangeStart; }
  // The URL that answered, after redirects.
  const std::string& EffectiveUrl() const { return fields_.effectiveUrl; }
  // Numeric address of the server that answered ("127.0.0.1", "::1"), or "".
  const std::string& ServerAddress() const { return fields_.serverAddress; }

 private:
  const Fields fields_;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_RESPONSE_H_
