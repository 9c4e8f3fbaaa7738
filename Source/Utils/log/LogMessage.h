// One log line under construction, and the DL_LOG macros that make one.
//
//   DL_LOGI << "dlsetlocalpath:" << path;
//
// produces "[DownloadManager.cpp::downloader::DownloadManager::SetLocalCachePath:42] dlsetlocalpath:/tmp\n".
// When the level is disabled the statement after the macro is not evaluated.
//
// Thread rules: a LogMessage lives inside one statement on one thread.
#ifndef DOWNLOADER_UTILS_LOG_LOGMESSAGE_H_
#define DOWNLOADER_UTILS_LOG_LOGMESSAGE_H_

#include <sstream>
#include <string>

#include "Utils/log/Logger.h"

namespace downloader {
namespace log {

class LogMessage {
 public:
  LogMessage(Level level, const char* file, const char* prettyFunction, int line);
  ~LogMessage();

  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  std::ostream& Stream() { return stream_; }

 private:
  Level level_;
  std::ostringstream stream_;
};

// "downloader::BufferQueue::ReadData" out of a compiler's pretty function name
// such as "downloader::DLReadResult downloader::BufferQueue::ReadData(void*, uint64_t)":
// no return type, no parameters. Anonymous namespaces read "{anonymous}" with
// either compiler.
std::string QualifiedFunctionName(const char* prettyFunction);
std::string QualifiedFunctionNameAsSpelled(const char* prettyFunction);

// "BufferQueue.cpp" out of "/src/Source/Base/BufferQueue.cpp" (either slash).
const char* BaseFileName(const char* path);

}  // namespace log
}  // namespace downloader

#define DL_LOG(level)                                               \
  if (!::downloader::log::Logger::IsEnabled(level)) {               \
  } else                                                            \
    ::downloader::log::LogMessage(level, __FILE__, __PRETTY_FUNCTION__, __LINE__).Stream()

#define DL_LOGT DL_LOG(::downloader::log::Level::kTrace)
#define DL_LOGD DL_LOG(::downloader::log::Level::kDebug)
#define DL_LOGI DL_LOG(::downloader::log::Level::kInfo)
#define DL_LOGW DL_LOG(::downloader::log::Level::kWarn)
#define DL_LOGE DL_LOG(::downloader::log::Level::kError)

#endif  // DOWNLOADER_UTILS_LOG_LOGMESSAGE_H_
