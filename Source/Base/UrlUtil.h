// Small helpers over URL text, for the executors that rewrite or inspect the
// URL they fetch. Plain text operations: no percent-decoding, no
// normalisation; a URL that does not parse gives "" for what it lacks.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_BASE_URLUTIL_H_
#define DOWNLOADER_BASE_URLUTIL_H_

#include <string>

namespace downloader {

class UrlUtil {
 public:
  // The query parameter the HTTP level adds so that a CDN's logs can tell
  // the players of one host apart.
  static constexpr const char kPlayerIdParam[] = "dl_player_id";

  // `url` with "name=value" appended to its query (before any fragment).
  // `name` and `value` are taken as already encoded.
  static std::string AddQueryParam(const std::string& url, const std::string& name, const std::string& value);
  // The URL's host name, without user info or port; "" when there is none.
  static std::string Host(const std::string& url);
  // The value of the first query parameter called `name`; "" when absent.
  static std::string QueryValue(const std::string& url, const std::string& name);
  static bool HasQueryParam(const std::string& url, const std::string& name);
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_URLUTIL_H_
