// dlplay's exit statuses: one per class of failure, numbered as curl numbers
// the same classes, so that scripts written for one read the other.
#ifndef TOOLS_DLPLAY_EXITSTATUS_H_
#define TOOLS_DLPLAY_EXITSTATUS_H_

#include <cstdint>
#include <string>

namespace dlplay {

constexpr int kExitSuccess = 0;
// A failure of no class below (connection lost mid-body, a range not honoured,
// a playlist that does not parse).
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
// A malformed URL, or a request the library refused to send.
constexpr int kExitBadRequest = 3;
// The stream is of a kind dlplay does not play (an encryption it does not know).
constexpr int kExitUnsupportedStream = 4;
constexpr int kExitDns = 6;
constexpr int kExitConnect = 7;
constexpr int kExitHttpStatus = 22;
constexpr int kExitTimeout = 28;
constexpr int kExitTls = 35;

// The status of a failed request, from the stream's "error_kind" and the
// request's sub-code (a time-out of the library's own reads has no kind of
// the network's but the GDTO sub-code).
int ExitStatusFor(const std::string& errorKind, int64_t subCode);

// The table for --help and the README.
std::string ExitStatusText();

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_EXITSTATUS_H_
