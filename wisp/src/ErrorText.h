// The errors whose message the backends word alike, so that a host shows the
// same reason whichever backend failed: "could not resolve host 'x'",
// "connection refused (127.0.0.1:1)", "HTTP 401", "timed out after 5000 ms ...".
#ifndef WISP_SRC_ERRORTEXT_H_
#define WISP_SRC_ERRORTEXT_H_

#include <wisp/http/Error.h>

#include <cstdint>
#include <string>

namespace wisp {
namespace internal {

http::Error DnsFailure(const std::string& host, bool isProxy);
// `reason` is what the system said ("connection refused"), or "" when it did not say.
http::Error ConnectFailure(const std::string& reason, const std::string& host, int32_t port);
// `problem` is the TLS library's own account ("self-signed certificate"), or "".
http::Error CertificateFailure(const std::string& problem);
http::Error TlsFailure(const std::string& problem);
http::Error StatusFailure(int32_t status);
http::Error OpenTimeout(int64_t timeoutMs);
http::Error StallTimeout(int64_t timeoutMs);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_ERRORTEXT_H_
