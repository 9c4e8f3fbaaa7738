#include "Filter/WispTotals.h"

#include "Utils/context/LibraryContext.h"

namespace downloader {

WispTotals& WispTotals::Current() { return LibraryContext::Current().Get<WispTotals>(); }

void WispTotals::AddCdnBytes(uint64_t bytes) { Current().cdnBytes_.fetch_add(bytes, std::memory_order_relaxed); }

uint64_t WispTotals::CdnBytes() { return Current().cdnBytes_.load(std::memory_order_relaxed); }

void WispTotals::SetLastDownloadSpeed(int64_t bytesPerSecond) {
  Current().lastDownloadSpeed_.store(bytesPerSecond, std::memory_order_relaxed);
}

int64_t WispTotals::LastDownloadSpeed() { return Current().lastDownloadSpeed_.load(std::memory_order_relaxed); }

}  // namespace downloader
