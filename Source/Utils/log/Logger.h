// The library's one logger: a level threshold and the host's line callback.
//
// Thread rules: every function may be called from any thread. The state is two
// atomics; a disabled level costs one relaxed load and a compare, with no
// formatting and no allocation (see DL_LOG).
#ifndef DOWNLOADER_UTILS_LOG_LOGGER_H_
#define DOWNLOADER_UTILS_LOG_LOGGER_H_

#include <downloader/Utils/Logging.h>

#include <string>

namespace downloader {
namespace log {

enum class Level : int {
  kTrace = DL_LOG_TRACE,
  kDebug = DL_LOG_DEBUG,
  kInfo = DL_LOG_INFO,
  kWarn = DL_LOG_WARN,
  kError = DL_LOG_ERROR,
};

class Logger {
 public:
  static bool IsEnabled(Level level);

  static void SetCallback(dl_quill_callback callback);
  static void SetLevel(int level);

  // Hands one finished line (prefix, message and newline) to the callback.
  static void Emit(Level level, const std::string& line);
};

}  // namespace log
}  // namespace downloader

#endif  // DOWNLOADER_UTILS_LOG_LOGGER_H_
