// A response head as a transport receives it, bounded: a server that sends
// header lines without end, or one endless line, is refused once the head
// passes kMaxResponseHeadBytes, before the client keeps more of it.
#ifndef WISP_SRC_RESPONSEHEAD_H_
#define WISP_SRC_RESPONSEHEAD_H_

#include <wisp/http/Error.h>
#include <wisp/http/Headers.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace wisp {
namespace internal {

// Far above any real response's head (a few KiB), still small in memory.
constexpr size_t kMaxResponseHeadBytes = 256 * 1024;

http::Error ResponseHeadTooLarge(size_t bytes);

struct ResponseHead {
  int32_t status = 0;
  http::Headers headers;
};

// Splits raw head text ("HTTP/1.1 206 ...\r\nName: value\r\n...") into the
// last response's status and its headers. False, with *error set, for a head
// above the bound or without a status line.
bool ParseResponseHead(std::string_view raw, ResponseHead* head, http::Error* error);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_RESPONSEHEAD_H_
