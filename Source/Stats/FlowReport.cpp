#include "Stats/FlowReport.h"

#include <atomic>

namespace downloader {
namespace {

std::atomic<bool> g_cdnFlowReport{false};
std::atomic<bool> g_newFlowReport{false};
std::atomic<int64_t> g_cdnTotalBytes{0};

}  // namespace

void FlowReport::SetSwitches(bool cdnFlowReport, bool newFlowReport) {
  g_cdnFlowReport.store(cdnFlowReport, std::memory_order_relaxed);
  g_newFlowReport.store(newFlowReport, std::memory_order_relaxed);
}

bool FlowReport::CdnFlowReportEnabled() { return g_cdnFlowReport.load(std::memory_order_relaxed); }

bool FlowReport::NewFlowReportEnabled() { return g_newFlowReport.load(std::memory_order_relaxed); }

void FlowReport::AddCdnBytes(int64_t bytes) {
  if (bytes > 0) g_cdnTotalBytes.fetch_add(bytes, std::memory_order_relaxed);
}

int64_t FlowReport::CdnTotalBytes() { return g_cdnTotalBytes.load(std::memory_order_relaxed); }

}  // namespace downloader
