// Judges a final response against its request, the same way on every
// backend: a non-2xx status fails with its "X-Error-Code" detail; an asked
// range that the answer does not start at fails, so that no byte is delivered
// at a wrong offset; otherwise the Response record is built (file size from
// Content-Range, else Content-Length).
#ifndef WISP_SRC_RESPONSECHECK_H_
#define WISP_SRC_RESPONSECHECK_H_

#include "RequestPlan.h"

#include <wisp/http/Error.h>
#include <wisp/http/Headers.h>
#include <wisp/http/Response.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace wisp {
namespace internal {

constexpr const char kErrorCodeHeader[] = "X-Error-Code";

struct ResponseVerdict {
  // Exactly one of the two is set.
  std::shared_ptr<http::Response> response;
  http::Error error;
};

ResponseVerdict CheckResponse(const RequestPlan& spec, int32_t status, http::Headers headers,
                              std::string effectiveUrl, std::string serverAddress);

// "bytes <first>-<last>/<total>" or ".../*" (total = Response::kUnknownSize).
struct ContentRange {
  int64_t first = 0;
  int64_t last = 0;
  int64_t total = http::Response::kUnknownSize;
};
bool ParseContentRange(std::string_view value, ContentRange* range);

// Header lines as transports hand them over. A status line is
// "HTTP/<version> <code> <reason>".
bool ParseStatusLine(std::string_view line, int32_t* status);
// "Name: value" (CR/LF stripped); false for anything else.
bool ParseHeaderLine(std::string_view line, http::Headers* headers);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_RESPONSECHECK_H_
