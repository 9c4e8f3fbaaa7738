// Whitespace trimming shared by dlplay's text readers (playlists, the
// settings file, -H headers). Stateless.
#ifndef DLPLAY_TEXTTRIM_H_
#define DLPLAY_TEXTTRIM_H_

#include <string>

namespace dlplay {

// `text` without leading and trailing spaces, tabs and carriage returns
// (a playlist or settings file written on Windows ends its lines in CR LF).
std::string Trim(const std::string& text);

}  // namespace dlplay

#endif  // DLPLAY_TEXTTRIM_H_
