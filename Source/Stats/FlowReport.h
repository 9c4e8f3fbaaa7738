// The two process-wide flow-report switches, written when the download
// manager is given a configuration. The CDN byte total that the manager
// reports beside them is the HTTP level's own (WispTotals).
//
// Thread rules: any thread; each switch is an atomic word, read and written
// without a lock.
#ifndef DOWNLOADER_STATS_FLOWREPORT_H_
#define DOWNLOADER_STATS_FLOWREPORT_H_

namespace downloader {

class FlowReport {
 public:
  FlowReport() = delete;

  static void SetSwitches(bool cdnFlowReport, bool newFlowReport);
  static bool CdnFlowReportEnabled();
  static bool NewFlowReportEnabled();
};

}  // namespace downloader

#endif  // DOWNLOADER_STATS_FLOWREPORT_H_
