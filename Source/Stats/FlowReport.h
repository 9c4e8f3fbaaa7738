// Process-wide flow figures that the download manager reports to the host:
// the two flow-report switches (written when a configuration is added) and
// the running total of bytes downloaded from the CDN (added to by the
// executors that download over HTTP).
//
// Thread rules: any thread; every figure is an atomic word, read and written
// without a lock.
#ifndef DOWNLOADER_STATS_FLOWREPORT_H_
#define DOWNLOADER_STATS_FLOWREPORT_H_

#include <cstdint>

namespace downloader {

class FlowReport {
 public:
  FlowReport() = delete;

  static void SetSwitches(bool cdnFlowReport, bool newFlowReport);
  static bool CdnFlowReportEnabled();
  static bool NewFlowReportEnabled();

  // Bytes that arrived from the CDN; negative counts are ignored.
  static void AddCdnBytes(int64_t bytes);
  static int64_t CdnTotalBytes();
};

}  // namespace downloader

#endif  // DOWNLOADER_STATS_FLOWREPORT_H_
