// HLS playlists as dlplay reads them: a master playlist lists variants, a
// media playlist lists segments. Only what a player needs to fetch bytes is
// kept (variant bandwidth and URI; segment URI, duration and byte range).
//
// Parsing is a pure function of the text: any input, however malformed,
// yields a playlist or an error text, never a crash.
#ifndef TOOLS_DLPLAY_HLSPLAYLIST_H_
#define TOOLS_DLPLAY_HLSPLAYLIST_H_

#include <cstdint>
#include <string>
#include <vector>

namespace dlplay {

struct HlsVariant {
  std::string uri;  // absolute
  uint64_t bandwidth = 0;
  std::string resolution;
};

struct HlsSegment {
  std::string uri;  // absolute
  double durationSeconds = 0;
  uint64_t sequence = 0;
  // -1 when the whole resource is the segment.
  int64_t rangeStart = -1;
  int64_t rangeLength = -1;
};

struct HlsPlaylist {
  enum class Kind { kMaster, kMedia };
  Kind kind = Kind::kMedia;
  std::vector<HlsVariant> variants;
  std::vector<HlsSegment> segments;
  double targetDurationSeconds = 0;
  bool endList = false;

  // The variant with the highest bandwidth (the first of equals); -1 if none.
  int BestVariant() const;
};

// `baseUrl` resolves relative URIs. False, with `error` set, when the text is
// not a playlist (no "#EXTM3U" first), mixes variants and segments, or has a
// tag that announces a URI with none following.
bool ParseHlsPlaylist(const std::string& text, const std::string& baseUrl, HlsPlaylist* playlist,
                      std::string* error);

// True when the URL names a playlist by its path (".m3u8" before any query).
bool LooksLikePlaylistUrl(const std::string& url);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_HLSPLAYLIST_H_
