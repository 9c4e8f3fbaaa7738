#include "ResponseCheck.h"

#include "ErrorText.h"
#include "TextUtil.h"

#include <utility>

namespace wisp {
namespace internal {
namespace {

using http::ErrorKind;

constexpr int32_t kPartialContent = 206;
// No media resource comes near it; a size above it is a lie or an attack, and
// a client sizing anything by it would be at the server's mercy.
constexpr int64_t kLargestResourceBytes = int64_t{1} << 40;

bool IsSuccess(int32_t status) { return status >= 200 && status < 300; }

http::Error Failure(ErrorKind kind, int32_t status, std::string detail, std::string message) {
  http::Error error;
  error.kind = kind;
  error.status = status;
  error.detail = std::move(detail);
  error.message = std::move(message);
  return error;
}

int64_t ContentLengthOf(const http::Headers& headers) {
  int64_t length = 0;
  const std::string text = headers.Get("Content-Length");
  return ParseDecimal(Trim(text), &length) ? length : http::Response::kUnknownSize;
}

// Digits that do not fit in 64 bits count as beyond any file too.
bool ContentLengthBeyondAnyFile(const http::Headers& headers) {
  const std::string value = headers.Get("Content-Length");
  std::string_view text = Trim(value);
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return false;
  int64_t length = 0;
  return !ParseDecimal(text, &length) || length > kLargestResourceBytes;
}

http::Error SizeRefused(int32_t status, const std::string& what) {
  return Failure(ErrorKind::kResponseRefused, status, "",
                 what + " beyond any file (above " + std::to_string(kLargestResourceBytes) + " bytes)");
}

// A 200 is acceptable for a range only when the range asked for the whole
// resource anyway: its bytes then sit at the offsets asked for.
bool WholeResourceAsked(const RequestPlan& spec) {
  return spec.range.Start() == 0 && spec.range.IsOpenEnded();
}

}  // namespace

bool ParseContentRange(std::string_view value, ContentRange* range) {
  std::string_view text = Trim(value);
  constexpr std::string_view kUnit = "bytes ";
  if (!StartsWithNoCase(text, kUnit)) return false;
  text = Trim(text.substr(kUnit.size()));
  size_t dash = text.find('-');
  size_t slash = text.find('/');
  if (dash == std::string_view::npos || slash == std::string_view::npos || slash < dash) {
    return false;
  }
  ContentRange parsed;
  if (!ParseDecimal(text.substr(0, dash), &parsed.first) ||
      !ParseDecimal(text.substr(dash + 1, slash - dash - 1), &parsed.last) ||
      parsed.last < parsed.first) {
    return false;
  }
  std::string_view total = text.substr(slash + 1);
  if (total != "*") {
    if (!ParseDecimal(total, &parsed.total) || parsed.total <= parsed.last) return false;
  }
  *range = parsed;
  return true;
}

bool ParseStatusLine(std::string_view line, int32_t* status) {
  line = Trim(line);
  if (!StartsWithNoCase(line, "HTTP/")) return false;
  size_t space = line.find(' ');
  if (space == std::string_view::npos) return false;
  std::string_view rest = line.substr(space + 1);
  int64_t code = 0;
  if (rest.size() < 3 || !ParseDecimal(rest.substr(0, 3), &code)) return false;
  *status = static_cast<int32_t>(code);
  return true;
}

bool ParseHeaderLine(std::string_view line, http::Headers* headers) {
  size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  std::string_view name = Trim(line.substr(0, colon));
  std::string_view value = Trim(line.substr(colon + 1));
  return headers->Add(std::string(name), std::string(value));
}

ResponseVerdict CheckResponse(const RequestPlan& spec, int32_t status, http::Headers headers,
                              std::string effectiveUrl, std::string serverAddress) {
  ResponseVerdict verdict;
  if (!IsSuccess(status)) {
    verdict.error = StatusFailure(status);
    verdict.error.detail = headers.Get(kErrorCodeHeader);
    return verdict;
  }
  if (ContentLengthBeyondAnyFile(headers)) {
    verdict.error = SizeRefused(status, "Content-Length " + headers.Get("Content-Length"));
    return verdict;
  }
  http::Response::Fields fields;
  fields.status = status;
  fields.contentLength = ContentLengthOf(headers);
  if (status == kPartialContent) {
    ContentRange contentRange;
    if (!ParseContentRange(headers.Get("Content-Range"), &contentRange)) {
      verdict.error = Failure(ErrorKind::kRangeNotHonoured, status, "",
                              "206 without a usable Content-Range: " + headers.Get("Content-Range"));
      return verdict;
    }
    int64_t expectedStart = spec.hasRange ? spec.range.Start() : 0;
    if (contentRange.first != expectedStart) {
      verdict.error = Failure(ErrorKind::kRangeNotHonoured, status, "",
                              "asked for offset " + std::to_string(expectedStart) +
                                  ", got Content-Range " + headers.Get("Content-Range"));
      return verdict;
    }
    if (contentRange.total > kLargestResourceBytes || contentRange.last >= kLargestResourceBytes) {
      verdict.error = SizeRefused(status, "Content-Range " + headers.Get("Content-Range"));
      return verdict;
    }
    fields.rangeStart = contentRange.first;
    fields.fileSize = contentRange.total;
    if (fields.contentLength == http::Response::kUnknownSize) {
      fields.contentLength = contentRange.last - contentRange.first + 1;
    }
  } else {
    if (spec.hasRange && !WholeResourceAsked(spec)) {
      verdict.error = Failure(ErrorKind::kRangeNotHonoured, status, "",
                              "asked for " + spec.range.ToHeader() + ", got status " +
                                  std::to_string(status));
      return verdict;
    }
    fields.fileSize = fields.contentLength;
  }
  fields.headers = std::move(headers);
  fields.effectiveUrl = std::move(effectiveUrl);
  fields.serverAddress = std::move(serverAddress);
  verdict.response = std::make_shared<http::Response>(std::move(fields));
  return verdict;
}

}  // namespace internal
}  // namespace wisp
