// HLS playlists as dlplay reads them: a master playlist lists variants, a
// media playlist lists segments. Only what a player needs to fetch and decode
// bytes is kept (variant bandwidth and URI; segment URI, duration, byte range,
// the initialisation section and key in force, and the timeline marks).
//
// Parsing is a pure function of the text: any input, however malformed,
// yields a playlist or an error text, never a crash.
#ifndef TOOLS_DLPLAY_HLSPLAYLIST_H_
#define TOOLS_DLPLAY_HLSPLAYLIST_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace dlplay {

// The first line of every playlist.
inline constexpr char kPlaylistHeaderTag[] = "#EXTM3U";

struct HlsVariant {
  std::string uri;  // absolute
  uint64_t bandwidth = 0;
  std::string resolution;
};

constexpr size_t kAesBlockSize = 16;
using AesBlock = std::array<uint8_t, kAesBlockSize>;

// The encryption in force (#EXT-X-KEY) for the segments that follow it.
struct HlsKey {
  enum class Method { kNone, kAes128, kUnsupported };
  Method method = Method::kNone;
  std::string methodName;  // as the playlist wrote it, for messages
  std::string uri;         // absolute
  bool hasIv = false;
  AesBlock iv{};

  // The IV attribute when there is one, else the media sequence number as a
  // 128-bit big-endian number.
  AesBlock IvFor(uint64_t sequence) const;
};

// The initialisation section (#EXT-X-MAP) a decoder needs before the segments
// that follow it.
struct HlsMap {
  std::string uri;  // absolute; empty when the segments need none
  // -1 when the whole resource is the section.
  int64_t rangeStart = -1;
  int64_t rangeLength = -1;
  // The key in force where the map was declared: the section is encrypted with it.
  HlsKey key;

  // One URI and range are one section, whatever key it is read with.
  bool operator==(const HlsMap& other) const {
    return uri == other.uri && rangeStart == other.rangeStart && rangeLength == other.rangeLength;
  }
  bool operator<(const HlsMap& other) const {
    return uri != other.uri ? uri < other.uri
                            : rangeStart != other.rangeStart ? rangeStart < other.rangeStart
                                                             : rangeLength < other.rangeLength;
  }
};

struct HlsSegment {
  std::string uri;  // absolute
  double durationSeconds = 0;
  uint64_t sequence = 0;
  // -1 when the whole resource is the segment.
  int64_t rangeStart = -1;
  int64_t rangeLength = -1;
  HlsMap map;
  HlsKey key;
  bool discontinuity = false;    // the encoding may change from this segment on
  std::string programDateTime;  // as written; empty when the playlist gave none
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

// `baseUrl` (the URL the text was read from, after redirects) resolves
// relative URIs. False, with `error` set, when the text is not a playlist (no
// "#EXTM3U" first), mixes variants and segments, has a tag that announces a
// URI with none following, or a key or map that lacks what it needs.
bool ParseHlsPlaylist(const std::string& text, const std::string& baseUrl, HlsPlaylist* playlist,
                      std::string* error);

// True when the URL names a playlist by its path (".m3u8" before any query).
bool LooksLikePlaylistUrl(const std::string& url);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_HLSPLAYLIST_H_
