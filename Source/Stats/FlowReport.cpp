#include "Stats/FlowReport.h"

#include <atomic>

namespace downloader {
namespace {

std::atomic<bool> g_cdnFlowReport{false};
std::atomic<bool> g_newFlowReport{false};

}  // namespace

void FlowReport::SetSwitches(bool cdnFlowReport, bool newFlowReport) {
  g_cdnFlowReport.store(cdnFlowReport, std::memory_order_relaxed);
  g_newFlowReport.store(newFlowReport, std::memory_order_relaxed);
}

bool FlowReport::CdnFlowReportEnabled() { return g_cdnFlowReport.load(std::memory_order_relaxed); }

bool FlowReport::NewFlowReportEnabled() { return g_newFlowReport.load(std::memory_order_relaxed); }

}  // namespace downloader
