#include "Base/RequestKind.h"

namespace downloader {
namespace {

constexpr char kPlaylistSuffix[] = ".m3u8";
constexpr char kPlaylistPath[] = "/playlist/m3u8";
constexpr char kAdPath[] = "/ad/";
constexpr char kAdCode[] = "ccode=0902";

bool Contains(const std::string& text, const char* needle, size_t from = 0) {
  return text.find(needle, from) != std::string::npos;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool IsAdvertisement(const std::string& url) {
  const size_t adPath = url.find(kAdPath);
  return adPath != std::string::npos && Contains(url, kAdCode, adPath);
}

}  // namespace

RequestKind RequestKind::Of(const std::string& url) {
  RequestKind kind;
  const bool playlistPath = Contains(url, kPlaylistPath);
  kind.playlist = EndsWith(url, kPlaylistSuffix) || playlistPath;
  kind.namesPlaylistText = Contains(url, kPlaylistSuffix) || playlistPath;
  kind.localFile = Contains(url, kLocalFilePrefix);
  kind.advertisement = IsAdvertisement(url);
  return kind;
}

}  // namespace downloader
