#include "support/LogCapture.h"

#include <mutex>

#include <downloader/Utils/Logging.h>

namespace dltest {
namespace {

std::mutex g_mutex;
std::vector<std::string> g_lines;

void Collect(int /*level*/, const char* line) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.emplace_back(line);
}

}  // namespace

LogCapture::LogCapture(int level) {
  Clear();
  dl_set_log_level(level);
  dl_set_quill_callback(&Collect);
}

LogCapture::~LogCapture() {
  dl_set_quill_callback(nullptr);
  dl_set_log_level(DL_LOG_INFO);
}

std::vector<std::string> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

std::vector<std::string> LogCapture::Matching(const std::string& needle) const {
  std::vector<std::string> found;
  for (const std::string& line : Lines()) {
    if (line.find(needle) != std::string::npos) found.push_back(line);
  }
  return found;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

}  // namespace dltest
