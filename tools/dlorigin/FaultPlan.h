// What a request to dlorigin asks to go wrong, read from its query string, so
// that every test chooses its own faults without state shared with others.
//
//   status=N        answer status N (with X-Error-Code when xerr= is given)
//   xerr=TEXT       X-Error-Code header on that answer
//   delay_ms=N      wait N ms before the headers
//   rate=N          send the body at N bytes per second
//   drop_after=N    close the connection after N body bytes
//   stall_after=N   stop sending after N body bytes (the connection stays open)
//   ignore_range=1  answer a Range request with 200 and the whole resource
//   range_shift=N   announce a Content-Range starting N bytes after the one asked
//   redirects=N     answer 302 to the same URL with redirects=N-1, N times
//   chunked=1       send the body chunked, without Content-Length
//   header_pad=N    add about N bytes of header lines of 1 KiB each
//   header_line=N   add one header line N bytes long
//   tag=TEXT        count the request and its bytes under TEXT (/stats?tag=TEXT)
#ifndef TOOLS_DLORIGIN_FAULTPLAN_H_
#define TOOLS_DLORIGIN_FAULTPLAN_H_

#include <httplib.h>

#include <cstdint>
#include <string>

namespace dlorigin {

struct FaultPlan {
  static constexpr int64_t kNever = -1;

  static FaultPlan FromRequest(const httplib::Request& request);

  int status = 0;
  std::string errorCode;
  int64_t delayMs = 0;
  int64_t rate = 0;
  int64_t dropAfter = kNever;
  int64_t stallAfter = kNever;
  bool ignoreRange = false;
  int64_t rangeShift = 0;
  int redirects = 0;
  bool chunked = false;
  int64_t headerPad = 0;
  int64_t headerLine = 0;
  std::string tag;
};

// The integer value of query parameter `name`, or `fallback`.
int64_t QueryInt(const httplib::Request& request, const char* name, int64_t fallback);

}  // namespace dlorigin

#endif  // TOOLS_DLORIGIN_FAULTPLAN_H_
