// What kind of request a URL names, told from the URL text alone. Each rule
// is written here once; the levels, the filters, the executors and the
// segment-cache policy ask this instead of searching the URL themselves.
//
// Every rule is a plain, case-sensitive substring test on the URL text:
// - a playlist ends with ".m3u8" or has "/playlist/m3u8" in it: the stream
//   opens it synchronously, the HTTP level logs it as one;
// - playlist text is named by ".m3u8" anywhere (a query included) or by
//   "/playlist/m3u8": the segment cache never stores or serves it, since a
//   playlist changes;
// - a local file has "http://local.url" in it, the file's path following
//   the prefix: only the local-file level serves it;
// - an advertisement has "/ad/" and, somewhere after it, "ccode=0902": it
//   may always fall back to the local-file and HTTP levels.
//
// A value type; Of() is stateless and callable from any thread.
#ifndef DOWNLOADER_BASE_REQUESTKIND_H_
#define DOWNLOADER_BASE_REQUESTKIND_H_

#include <string>

namespace downloader {

struct RequestKind {
  // The placeholder prefix of local resources; the file's path follows it.
  static constexpr const char kLocalFilePrefix[] = "http://local.url";

  bool playlist = false;
  bool namesPlaylistText = false;
  bool localFile = false;
  bool advertisement = false;

  static RequestKind Of(const std::string& url);
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_REQUESTKIND_H_
