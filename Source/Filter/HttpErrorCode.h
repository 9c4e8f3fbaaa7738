// The four-character sub-code that the HTTP level gives a failure of the
// network library, from the error's kind and status (and, for 403, the CDN's
// detail code). The table keeps its historic rows exactly: status 501 reads
// H400, and 4xx statuses other than 403, 404 and 416 read H5XX, because log
// tooling and dashboards key on these values.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_FILTER_HTTPERRORCODE_H_
#define DOWNLOADER_FILTER_HTTPERRORCODE_H_

#include <cstdint>
#include <string>

#include <downloader/Filter/SubCode.h>
#include <wisp/http/Error.h>

namespace downloader {

class HttpErrorCode {
 public:
  static constexpr int64_t kTimeout = FourCharSubCode('G', 'D', 'T', 'O');
  static constexpr int64_t kForbidden = FourCharSubCode('H', '4', '0', '3');
  // Not a failure of the network library: the executor refused to send a
  // request whose header text carries CR or LF.
  static constexpr int64_t kHeaderRefused = FourCharSubCode('H', 'H', 'D', 'R');
  // The server's response was refused as beyond bounds (its head too large,
  // its size beyond any file).
  static constexpr int64_t kResponseRefused = FourCharSubCode('H', 'B', 'I', 'G');

  // 0 for no error.
  static int64_t FromError(const wisp::http::Error& error);
  // Why the request failed, in words a user can act on ("could not resolve
  // host 'x'", "HTTP 401"); "" for no error.
  static std::string Reason(const wisp::http::Error& error);

 private:
  // H403 for anything but a detail of the CDN's table (403000, 403601..403612).
  static int64_t ForbiddenDetail(const std::string& detail);
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_HTTPERRORCODE_H_
