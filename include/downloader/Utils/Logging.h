// The host's view of the library's log: one C callback that receives every
// line, and the lowest level that is produced.
//
// Each line begins "[" file "::" qualified function ":" line "] " and ends with
// a newline. The callback is called on whichever thread logs (player threads,
// the network thread, the storage thread), so it must be thread-safe and must
// not call back into the library. Until a callback is registered nothing is
// formatted at all.
#ifndef DOWNLOADER_UTILS_LOGGING_H_
#define DOWNLOADER_UTILS_LOGGING_H_

#include <downloader/DownloaderExport.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  DL_LOG_TRACE = 0,  // per read, per chunk
  DL_LOG_DEBUG = 1,
  DL_LOG_INFO = 2,   // per request: open, close, downgrade
  DL_LOG_WARN = 3,
  DL_LOG_ERROR = 4,
  DL_LOG_OFF = 5
};

// `line` is NUL-terminated and valid only during the call.
typedef void (*dl_quill_callback)(int level, const char* line);

// Replaces the line callback (null: stop logging). Also routes wisp's lines
// to the same callback.
DOWNLOADER_EXPORT void dl_set_quill_callback(dl_quill_callback callback);

// Lines below `level` are not produced; the default is DL_LOG_INFO.
DOWNLOADER_EXPORT void dl_set_log_level(int level);

#ifdef __cplusplus
}
#endif

#endif  // DOWNLOADER_UTILS_LOGGING_H_
