// The Range header of a player's request, as the gateway honours it: one
// byte range ("bytes=A-B", "bytes=A-", "bytes=-N"). A header the gateway does
// not honour (several ranges, another unit, bad syntax) is ignored, which
// HTTP allows: the whole resource is served with 200.
//
// Pure functions; any thread.
#ifndef TOOLS_DLPLAY_RANGEHEADER_H_
#define TOOLS_DLPLAY_RANGEHEADER_H_

#include <cstdint>
#include <string>

namespace dlplay {

struct ByteRangeRequest {
  bool present = false;  // false: serve the whole resource
  // "bytes=A-B": first A, last B (-1 when left out). "bytes=-N": suffixLength N.
  int64_t first = -1;
  int64_t last = -1;
  int64_t suffixLength = -1;
};

ByteRangeRequest ParseRangeHeader(const std::string& value);

// The inclusive bytes [*start, *end] the request names in a resource of
// `size` bytes. False when no byte of it is in the resource (416).
bool ResolveByteRange(const ByteRangeRequest& range, int64_t size, int64_t* start, int64_t* end);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_RANGEHEADER_H_
