#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "HlsPlaylist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  dlplay::HlsPlaylist playlist;
  std::string error;
  if (!dlplay::ParseHlsPlaylist(text, "http://origin.test/a/b/index.m3u8?k=v", &playlist, &error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (!playlist.variants.empty() && !playlist.segments.empty()) std::abort();
  for (const dlplay::HlsSegment& segment : playlist.segments) {
    if (segment.uri.empty()) std::abort();
    if (segment.rangeLength >= 0 && segment.rangeStart < 0) std::abort();
    if (segment.map.rangeLength >= 0 && segment.map.rangeStart < 0) std::abort();
    if (segment.key.method == dlplay::HlsKey::Method::kAes128 && segment.key.uri.empty()) std::abort();
  }
  int best = playlist.BestVariant();
  if (best >= static_cast<int>(playlist.variants.size())) std::abort();
  return 0;
}
