#include "LogSink.h"

#include <cstdio>

#include <wisp/Mutex.h>

namespace dlplay {
namespace {

wisp::Mutex g_mutex;
FILE* g_file GUARDED_BY(g_mutex) = nullptr;
int g_stderrLevel GUARDED_BY(g_mutex) = DL_LOG_ERROR;

void OnLine(int level, const char* line) {
  wisp::MutexLock lock(&g_mutex);
  if (g_file != nullptr) {
    std::fputs(line, g_file);
  } else if (level >= g_stderrLevel) {
    std::fputs(line, stderr);
  }
}

}  // namespace

bool LogSink::Install(const std::string& path, bool verbose, std::string* error) {
  const int stderrLevel = verbose ? DL_LOG_DEBUG : DL_LOG_ERROR;
  {
    wisp::MutexLock lock(&g_mutex);
    g_stderrLevel = stderrLevel;
    if (!path.empty()) {
      g_file = std::fopen(path.c_str(), "w");
      if (g_file == nullptr) {
        *error = "cannot write the log " + path;
        return false;
      }
    }
  }
  dl_set_quill_callback(&OnLine);
  dl_set_log_level(path.empty() ? stderrLevel : DL_LOG_DEBUG);
  return true;
}

void LogSink::Uninstall() {
  dl_set_quill_callback(nullptr);
  wisp::MutexLock lock(&g_mutex);
  if (g_file != nullptr) std::fclose(g_file);
  g_file = nullptr;
}

void LogSink::Write(const std::string& line) { OnLine(DL_LOG_INFO, line.c_str()); }

void LogReporter::Report(const std::string& category, const std::string& name, const std::string& text) {
  LogSink::Write("[report] " + category + " " + name + ": " + text + "\n");
}

}  // namespace dlplay
