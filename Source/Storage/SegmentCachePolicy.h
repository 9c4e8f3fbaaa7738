// Which requests go to and come from segment files. One rule serves both
// sides, so that a stream writes exactly what the disk-cache level would
// replay:
// - the URL is plain: none of ".m3u8", "/playlist/m3u8", "http://local.url",
//   "flv.ts", "mp4.ts" (playlists change, local files are on disk already,
//   and the two muxed forms are not cached);
// - and "enable_segment_writer" is on (for a separate "_video_" or "_audio_"
//   track only together with "enable_segment_cmaf"), or
//   "force_segment_writer" is on.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_STORAGE_SEGMENTCACHEPOLICY_H_
#define DOWNLOADER_STORAGE_SEGMENTCACHEPOLICY_H_

#include <string>

#include <downloader/Pipe/ConfigReader.h>

namespace downloader {
namespace storage {

class SegmentCachePolicy {
 public:
  static bool IsPlainUrl(const std::string& url);
  // Playlists, "/playlist/m3u8" and local files.
  static bool IsPlaylistOrLocal(const std::string& url);
  static bool IsSeparateTrack(const std::string& url);
  static bool Applies(const ConfigPtr& config, const std::string& url);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTCACHEPOLICY_H_
