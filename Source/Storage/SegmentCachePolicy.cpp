#include "Storage/SegmentCachePolicy.h"

#include "Base/RequestKind.h"
#include "Base/Settings.h"

namespace downloader {
namespace storage {
namespace {

bool ContainsAny(const std::string& text, std::initializer_list<const char*> needles) {
  for (const char* needle : needles) {
    if (text.find(needle) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

bool SegmentCachePolicy::IsPlaylistOrLocal(const std::string& url) {
  const RequestKind kind = RequestKind::Of(url);
  return kind.namesPlaylistText || kind.localFile;
}

bool SegmentCachePolicy::IsPlainUrl(const std::string& url) {
  return !IsPlaylistOrLocal(url) && !ContainsAny(url, {"flv.ts", "mp4.ts"});
}

bool SegmentCachePolicy::IsSeparateTrack(const std::string& url) { return ContainsAny(url, {"_video_", "_audio_"}); }

bool SegmentCachePolicy::Applies(const ConfigPtr& config, const std::string& url) {
  if (!config || !IsPlainUrl(url)) return false;
  const DownloaderSettings settings = DownloaderSettings::Read(config);
  if (settings.enableSegmentWriter) {
    if (!IsSeparateTrack(url)) return true;
    if (settings.enableSegmentCmaf) return true;
  }
  return settings.forceSegmentWriter;
}

}  // namespace storage
}  // namespace downloader
