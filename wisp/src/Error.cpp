#include <wisp/http/Error.h>

namespace wisp {
namespace http {

const char* ErrorKindName(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kNone: return "none";
    case ErrorKind::kInvalidRequest: return "invalid request";
    case ErrorKind::kDnsFailure: return "dns failure";
    case ErrorKind::kConnectFailure: return "connect failure";
    case ErrorKind::kTlsFailure: return "tls failure";
    case ErrorKind::kHttpStatus: return "http status";
    case ErrorKind::kTooManyRedirects: return "too many redirects";
    case ErrorKind::kRangeNotHonoured: return "range not honoured";
    case ErrorKind::kConnectionLost: return "connection lost";
    case ErrorKind::kTimeout: return "timeout";
    case ErrorKind::kCancelled: return "cancelled";
    case ErrorKind::kInternal: return "internal";
    case ErrorKind::kResponseRefused: return "response refused";
  }
  return "unknown";
}

std::string Error::String() const {
  std::string text = "kind:" + std::to_string(static_cast<int32_t>(kind)) + "(" +
                     ErrorKindName(kind) + ")";
  if (status != 0) text += " status:" + std::to_string(status);
  if (!detail.empty()) text += " detail:" + detail;
  if (!message.empty()) text += " message:" + message;
  return text;
}

}  // namespace http
}  // namespace wisp
