// The host's statistics sink. The library hands it records as text: a
// category (for instance "downloader"), a name ("wispLastReports",
// "stream_end_info", "dltunnelstat", ...) and the record's text.
//
// Called from player threads and from network threads, possibly at the same
// time: a host implementation must be thread-safe, must return quickly and
// must not call back into the library from inside Report.
#ifndef DOWNLOADER_PIPE_IREPORTER_H_
#define DOWNLOADER_PIPE_IREPORTER_H_

#include <string>

#include <downloader/DownloaderExport.h>

namespace protocols {

class DOWNLOADER_EXPORT IReporter {
 public:
  virtual ~IReporter();

  virtual void Report(const std::string& category, const std::string& name,
                      const std::string& text) = 0;
};

}  // namespace protocols

#endif  // DOWNLOADER_PIPE_IREPORTER_H_
