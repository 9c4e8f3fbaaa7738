#include "ExitStatus.h"

#include <downloader/Filter/SubCode.h>

namespace dlplay {

int ExitStatusFor(const std::string& errorKind, int64_t subCode) {
  if (errorKind == "dns failure") return kExitDns;
  if (errorKind == "connect failure") return kExitConnect;
  if (errorKind == "tls failure") return kExitTls;
  if (errorKind == "http status") return kExitHttpStatus;
  if (errorKind == "timeout" || subCode == downloader::FourCharSubCode('G', 'D', 'T', 'O')) return kExitTimeout;
  if (errorKind == "invalid request") return kExitBadRequest;
  return kExitFailure;
}

std::string ExitStatusText() {
  return "exit status (of the first failed request):\n"
         "  0 every request read to its end    1 other failure      2 usage\n"
         "  3 malformed URL or refused request 4 unsupported stream 6 host not resolved\n"
         "  7 could not connect                22 HTTP error status 28 timed out\n"
         "  35 TLS: handshake or certificate check failed\n";
}

}  // namespace dlplay
