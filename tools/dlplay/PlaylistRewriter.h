// Rewrites an HLS playlist (master or media) so that a player fetches every
// resource it names through the gateway: variant and segment URI lines, and
// the URI="..." attribute of any tag (#EXT-X-MAP, #EXT-X-KEY, #EXT-X-MEDIA,
// #EXT-X-I-FRAME-STREAM-INF, ...). Each reference is first resolved against
// the playlist's own URL (after redirects); references that are not http(s)
// once resolved (data:, skd:) are left as written, since only the library can
// fetch them. Everything else (tags, comments, blank lines, line ends) is kept.
//
// Pure functions; any thread.
#ifndef TOOLS_DLPLAY_PLAYLISTREWRITER_H_
#define TOOLS_DLPLAY_PLAYLISTREWRITER_H_

#include <functional>
#include <string>

namespace dlplay {

// Maps a resource's absolute URL to the URI the player is to request.
using GatewayUriFor = std::function<std::string(const std::string& absoluteUrl)>;

std::string RewritePlaylist(const std::string& text, const std::string& baseUrl, const GatewayUriFor& gatewayUri);

// Every byte but the unreserved ones (letters, digits, "-._~") as %XX, so
// that the text survives as one query parameter value.
std::string PercentEncode(const std::string& text);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_PLAYLISTREWRITER_H_
