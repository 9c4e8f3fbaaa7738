// wisp's internal log macro. Lines carry the same prefix as the downloader's:
// "[" file "::" function ":" line "] ".
#ifndef WISP_SRC_LOGGING_H_
#define WISP_SRC_LOGGING_H_

#include <sstream>
#include <string>

namespace wisp {
namespace internal {

bool LogEnabled(int level);
void LogEmit(int level, const std::string& line);

inline const char* LogBaseName(const char* path) {
  const char* base = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/' || *p == '\\') base = p + 1;
  }
  return base;
}

class LogLine {
 public:
  LogLine(int level, const char* file, const char* function, int line) : level_(level) {
    stream_ << '[' << LogBaseName(file) << "::wisp::" << function << ':' << line << "] ";
  }
  ~LogLine() {
    stream_ << '\n';
    LogEmit(level_, stream_.str());
  }
  std::ostream& Stream() { return stream_; }

 private:
  int level_;
  std::ostringstream stream_;
};

}  // namespace internal
}  // namespace wisp

#define WISP_LOG(level)                            \
  if (!::wisp::internal::LogEnabled(level)) {      \
  } else                                           \
    ::wisp::internal::LogLine(level, __FILE__, __func__, __LINE__).Stream()

#endif  // WISP_SRC_LOGGING_H_
