// Resolution of a reference (as found in a playlist) against the playlist's
// URL, the way a browser resolves a link: absolute references stay, "//host"
// takes the base's scheme, "/path" the base's authority, anything else the
// base's directory; "." and ".." segments are removed.
#ifndef TOOLS_DLPLAY_URLRESOLVER_H_
#define TOOLS_DLPLAY_URLRESOLVER_H_

#include <string>

namespace dlplay {

std::string ResolveUrl(const std::string& base, const std::string& reference);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_URLRESOLVER_H_
