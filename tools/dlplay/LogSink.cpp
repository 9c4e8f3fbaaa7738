#include "LogSink.h"

#include <cstdio>
#include <mutex>

namespace dlplay {
namespace {

std::mutex g_mutex;
// Guarded by g_mutex.
FILE* g_file = nullptr;

void OnLine(int level, const char* line) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_file != nullptr) {
    std::fputs(line, g_file);
  } else if (level >= DL_LOG_ERROR) {
    std::fputs(line, stderr);
  }
}

}  // namespace

bool LogSink::Install(const std::string& path, std::string* error) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!path.empty()) {
      g_file = std::fopen(path.c_str(), "w");
      if (g_file == nullptr) {
        *error = "cannot write the log " + path;
        return false;
      }
    }
  }
  dl_set_quill_callback(&OnLine);
  dl_set_log_level(path.empty() ? DL_LOG_ERROR : DL_LOG_DEBUG);
  return true;
}

void LogSink::Uninstall() {
  dl_set_quill_callback(nullptr);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_file != nullptr) std::fclose(g_file);
  g_file = nullptr;
}

void LogSink::Write(const std::string& line) { OnLine(DL_LOG_INFO, line.c_str()); }

void LogReporter::Report(const std::string& category, const std::string& name, const std::string& text) {
  LogSink::Write("[report] " + category + " " + name + ": " + text + "\n");
}

}  // namespace dlplay
