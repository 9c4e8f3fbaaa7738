#include <wisp/Log.h>

#include "Logging.h"

#include <atomic>

namespace wisp {
namespace {

constexpr int kLevelOff = 5;
std::atomic<QuillCallback> g_callback{nullptr};
std::atomic<int> g_level{2};

}  // namespace

void set_quill_callback(QuillCallback callback) { g_callback.store(callback); }

void set_log_level(int level) { g_level.store(level); }

namespace internal {

bool LogEnabled(int level) {
  return level < kLevelOff && level >= g_level.load(std::memory_order_relaxed) &&
         g_callback.load(std::memory_order_relaxed) != nullptr;
}

void LogEmit(int level, const std::string& line) {
  QuillCallback callback = g_callback.load();
  if (callback != nullptr) callback(level, line.c_str());
}

}  // namespace internal
}  // namespace wisp
