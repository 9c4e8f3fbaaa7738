// Playlists served gzip-compressed: some origins compress them whatever the
// request asked, so the body is recognised by its first bytes rather than by
// a header (zlib underneath).
#ifndef TOOLS_DLPLAY_GUNZIP_H_
#define TOOLS_DLPLAY_GUNZIP_H_

#include <string>

namespace dlplay {

// True when `data` starts with the gzip magic bytes.
bool LooksGzipped(const std::string& data);

// Inflates a whole gzip member. False, with `error`, when it is cut or corrupt.
bool Gunzip(const std::string& compressed, std::string* plain, std::string* error);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_GUNZIP_H_
