// Collects the library's log lines for the lifetime of the object. One capture
// at a time per process (the logger has one callback).
#ifndef TESTS_SUPPORT_LOGCAPTURE_H_
#define TESTS_SUPPORT_LOGCAPTURE_H_

#include <string>
#include <vector>

#include <downloader/Utils/Logging.h>

namespace dltest {

class LogCapture {
 public:
  explicit LogCapture(int level = 0);
  ~LogCapture();

  std::vector<std::string> Lines() const;
  // Lines that contain `needle`.
  std::vector<std::string> Matching(const std::string& needle) const;
  bool Contains(const std::string& needle) const { return !Matching(needle).empty(); }
  void Clear();
};

}  // namespace dltest

#endif  // TESTS_SUPPORT_LOGCAPTURE_H_
