// Where dlplay sends the library's log lines and reports: a file (--log), or
// stderr for warnings and errors only. Thread-safe: the library logs from its
// own threads. Without a file only errors reach stderr.
#ifndef TOOLS_DLPLAY_LOGSINK_H_
#define TOOLS_DLPLAY_LOGSINK_H_

#include <string>

#include <downloader/downloader.h>

namespace dlplay {

class LogSink {
 public:
  // Registers the library's line callback; an empty path logs errors on
  // stderr, or every line with `verbose`. False when the file cannot be opened.
  static bool Install(const std::string& path, bool verbose, std::string* error);
  static void Uninstall();
  static void Write(const std::string& line);
};

// The host reporter: every record the library reports goes to the log.
class LogReporter : public protocols::IReporter {
 public:
  void Report(const std::string& category, const std::string& name, const std::string& text) override;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_LOGSINK_H_
