// A byte range of a resource, as sent in a Range request header.
#ifndef WISP_HTTP_RANGE_H_
#define WISP_HTTP_RANGE_H_

#include <wisp/WispExport.h>

#include <cstdint>
#include <string>

namespace wisp {
namespace http {

class WISP_EXPORT Range {
 public:
  static constexpr int64_t kToEnd = -1;
  static constexpr const char* kHeaderName = "Range";

  // Bytes [start, end], end inclusive; kToEnd (any negative end) asks for
  // everything from `start` on. A negative start is taken as 0.
  explicit Range(int64_t start, int64_t end = kToEnd);

  int64_t Start() const { return start_; }
  int64_t End() const { return end_; }
  bool IsOpenEnded() const { return end_ == kToEnd; }

  // The header value: "bytes=<start>-" or "bytes=<start>-<end>". An end before
  // the start is sent as open-ended. Use as headers.Add(Range::kHeaderName, r.ToHeader()).
  std::string ToHeader() const;

  // Parses a single-range header value of the forms above. Returns false for
  // anything else (suffix ranges, lists), leaving *range unchanged.
  static bool Parse(const std::string& value, Range* range);

 private:
  int64_t start_;
  int64_t end_;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_RANGE_H_
