#include "ErrorText.h"

#include <utility>

namespace wisp {
namespace internal {
namespace {

http::Error Make(http::ErrorKind kind, std::string message) {
  http::Error error;
  error.kind = kind;
  error.message = std::move(message);
  return error;
}

std::string WithProblem(const std::string& what, const std::string& problem) {
  return problem.empty() ? what : what + ": " + problem;
}

}  // namespace

http::Error DnsFailure(const std::string& host, bool isProxy) {
  return Make(http::ErrorKind::kDnsFailure,
              std::string("could not resolve ") + (isProxy ? "proxy" : "host") + " '" + host + "'");
}

http::Error ConnectFailure(const std::string& reason, const std::string& host, int32_t port) {
  const std::string what = reason.empty() ? "could not connect" : reason;
  return Make(http::ErrorKind::kConnectFailure, what + " (" + host + ":" + std::to_string(port) + ")");
}

http::Error CertificateFailure(const std::string& problem) {
  return Make(http::ErrorKind::kTlsFailure, WithProblem("certificate verify failed", problem));
}

http::Error TlsFailure(const std::string& problem) {
  return Make(http::ErrorKind::kTlsFailure, WithProblem("TLS handshake failed", problem));
}

http::Error StatusFailure(int32_t status) {
  http::Error error = Make(http::ErrorKind::kHttpStatus, "HTTP " + std::to_string(status));
  error.status = status;
  return error;
}

http::Error OpenTimeout(int64_t timeoutMs) {
  return Make(http::ErrorKind::kTimeout,
              "timed out after " + std::to_string(timeoutMs) + " ms waiting for the response");
}

http::Error StallTimeout(int64_t timeoutMs) {
  return Make(http::ErrorKind::kTimeout, "timed out after " + std::to_string(timeoutMs) + " ms without a body byte");
}

}  // namespace internal
}  // namespace wisp
