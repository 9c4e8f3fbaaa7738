// wisp's log hook: the host (normally the downloader, which forwards its own
// registration) receives wisp's lines through one C callback.
//
// Lines have the form "[" file "::" function ":" line "] " message "\n". The
// callback is called from wisp's network thread and from callers' threads.
#ifndef WISP_LOG_H_
#define WISP_LOG_H_

#include <wisp/WispExport.h>

namespace wisp {

// Same shape as the downloader's dl_quill_callback: (level, NUL-terminated line).
// Levels: 0 trace, 1 debug, 2 info, 3 warn, 4 error, 5 off.
using QuillCallback = void (*)(int level, const char* line);

WISP_EXPORT void set_quill_callback(QuillCallback callback);
WISP_EXPORT void set_log_level(int level);

}  // namespace wisp

#endif  // WISP_LOG_H_
