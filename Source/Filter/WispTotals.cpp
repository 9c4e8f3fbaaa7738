#include "Filter/WispTotals.h"

#include <atomic>

namespace downloader {
namespace {

std::atomic<uint64_t> g_cdnBytes{0};
std::atomic<int64_t> g_lastDownloadSpeed{0};

}  // namespace

void WispTotals::AddCdnBytes(uint64_t bytes) { g_cdnBytes.fetch_add(bytes, std::memory_order_relaxed); }

uint64_t WispTotals::CdnBytes() { return g_cdnBytes.load(std::memory_order_relaxed); }

void WispTotals::SetLastDownloadSpeed(int64_t bytesPerSecond) {
  g_lastDownloadSpeed.store(bytesPerSecond, std::memory_order_relaxed);
}

int64_t WispTotals::LastDownloadSpeed() { return g_lastDownloadSpeed.load(std::memory_order_relaxed); }

}  // namespace downloader
