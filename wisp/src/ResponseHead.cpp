#include "ResponseHead.h"

#include "ResponseCheck.h"
#include "TextUtil.h"

#include <string>

namespace wisp {
namespace internal {

http::Error ResponseHeadTooLarge(size_t bytes) {
  http::Error error;
  error.kind = http::ErrorKind::kResponseRefused;
  error.message = "response head of " + std::to_string(bytes) + " bytes or more, above the bound of " +
                  std::to_string(kMaxResponseHeadBytes);
  return error;
}

bool ParseResponseHead(std::string_view raw, ResponseHead* head, http::Error* error) {
  if (raw.size() > kMaxResponseHeadBytes) {
    *error = ResponseHeadTooLarge(raw.size());
    return false;
  }
  ResponseHead parsed;
  bool sawStatus = false;
  while (!raw.empty()) {
    size_t end = raw.find('\n');
    std::string_view line = raw.substr(0, end);
    raw = end == std::string_view::npos ? std::string_view() : raw.substr(end + 1);
    int32_t status = 0;
    if (ParseStatusLine(line, &status)) {
      // A later status line starts the next response (after a 1xx or a
      // redirect); only the last one's headers count.
      parsed = ResponseHead();
      parsed.status = status;
      sawStatus = true;
    } else if (!Trim(line).empty()) {
      ParseHeaderLine(line, &parsed.headers);
    }
  }
  if (!sawStatus) {
    error->kind = http::ErrorKind::kInternal;
    error->message = "response without a status line";
    return false;
  }
  *head = std::move(parsed);
  return true;
}

}  // namespace internal
}  // namespace wisp
