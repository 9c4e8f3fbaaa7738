#include "Utils/log/Logger.h"

#include <atomic>

#include <wisp/Log.h>

namespace downloader {
namespace log {
namespace {

std::atomic<dl_quill_callback> g_callback{nullptr};
std::atomic<int> g_level{DL_LOG_INFO};
// The lowest level that produces a line: g_level while a callback is set,
// DL_LOG_OFF otherwise. Kept apart so that IsEnabled is a single load.
std::atomic<int> g_threshold{DL_LOG_OFF};

void UpdateThreshold() {
  int threshold = g_callback.load() != nullptr ? g_level.load() : DL_LOG_OFF;
  g_threshold.store(threshold, std::memory_order_relaxed);
}

}  // namespace

bool Logger::IsEnabled(Level level) {
  return static_cast<int>(level) >= g_threshold.load(std::memory_order_relaxed);
}

void Logger::SetCallback(dl_quill_callback callback) {
  g_callback.store(callback);
  UpdateThreshold();
}

void Logger::SetLevel(int level) {
  if (level < DL_LOG_TRACE) level = DL_LOG_TRACE;
  if (level > DL_LOG_OFF) level = DL_LOG_OFF;
  g_level.store(level);
  UpdateThreshold();
}

void Logger::Emit(Level level, const std::string& line) {
  dl_quill_callback callback = g_callback.load();
  if (callback != nullptr) callback(static_cast<int>(level), line.c_str());
}

}  // namespace log
}  // namespace downloader

extern "C" void dl_set_quill_callback(dl_quill_callback callback) {
  downloader::log::Logger::SetCallback(callback);
  wisp::set_quill_callback(callback);
}

extern "C" void dl_set_log_level(int level) {
  downloader::log::Logger::SetLevel(level);
  wisp::set_log_level(level);
}
