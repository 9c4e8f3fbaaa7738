// The bytes an HTTP request may hand to its reader before the network has
// answered: what a preload already stored of the resource in the disk cache,
// from the request's start on.
//
// A request takes them when "enable_cache_buffer" (downloader_config) is on
// and its "preload_buffer" parameter is true. It takes at most
// "cache_buffer_limit" bytes, never past the
// stored prefix, and always leaves the last byte of the request's range to
// the network, so that the request still gets a response (status, size)
// to open with. The caller asks the network for the rest from
// start + Take().size() on.
//
// Edge cases: the cache off, nothing stored at the start, a start at or past
// the last byte, or a limit of 0 or less all give no bytes; a store that
// stops delivering early gives what it delivered.
//
// Stateless; any thread.
#ifndef DOWNLOADER_FILTER_WISPPRELOADBUFFER_H_
#define DOWNLOADER_FILTER_WISPPRELOADBUFFER_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/Pipe/ConfigReader.h>

#include "Base/Settings.h"

namespace downloader {

class WispPreloadBuffer {
 public:
  // Whether the request asks for its preload buffer and the settings allow it.
  static bool Wanted(const DownloaderSettings& settings, const RequestParams& request);
  // The stored bytes from `start` on, as the rules above bound them, for a
  // request whose "range_end" is `rangeEnd` and a "cache_buffer_limit" of `limit`.
  static std::string Take(const ConfigPtr& config, const std::shared_ptr<URI>& uri, int64_t start, int64_t rangeEnd,
                          int64_t limit);
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPPRELOADBUFFER_H_
