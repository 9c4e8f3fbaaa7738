// Preloads a set of whole files through the PCDN engine, outside any player
// stream: one engine download per file, progress, speed and size queries per
// download id, and the host told through one process-wide callback when the
// set has something to say.
//
// Each started set gets a new identity from a process-wide counter that
// starts at 1000. Per identity the registry keeps three countdowns: files
// left and closes left (both start at the task count) and errors left
// (starts at 1). The host hears:
// - every event with result code 0 (plain progress);
// - the first failure of the set (any code other than 0, -5 and -100);
//   later failures are swallowed;
// - the finish (-5) that brings files left to 0, and the close (-100) that
//   brings closes left to 0; earlier finishes and closes are swallowed.
// Events for ids that no Start registered, or arriving while no host callback
// is set, are logged and dropped.
//
// Edge cases:
// - Start with no task logs, takes no identity and leaves the downloader
//   without ids (Close then returns -1 and the queries answer for no id).
// - A download the engine refuses (id below 1) ends Start: later tasks are
//   not started; their id slots hold 0 and, like the refused slot, are still
//   passed to the engine by Close and the queries.
// - With the present engine binding the download call always answers -1, so
//   Start records -1 in the first slot and starts nothing.
// - GetProgress with no usable answer returns 0/0, not a number, on purpose.
//
// Thread rules: one host thread at a time per object. The engine calls
// PcdnNotifier on its own threads; the registry (id map and countdowns) is
// guarded by one process-wide mutex, never held while the host callback runs.
#ifndef DOWNLOADER_CACHE_FILEDOWNLOADER_H_
#define DOWNLOADER_CACHE_FILEDOWNLOADER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <downloader/DownloaderExport.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

namespace downloader {

class DOWNLOADER_EXPORT FileDownloader {
 public:
  // Bit of Task::flags: the file comes from several sources, which changes
  // the speed query.
  static constexpr uint32_t kMultiSourceFlag = 1;
  static constexpr int kFileFinished = -5;
  static constexpr int kDownloadClosed = -100;
  static constexpr int32_t kNoIdentity = -1;

  struct Task {
    std::string url;
    std::string savePath;
    std::string params;
    uint32_t flags = 0;
  };

  // (identity, index, type, result code, extra info).
  using PreloadCallback = std::function<void(int32_t, int, int, int, const char*)>;
  // The engine's whole-file download call.
  using DownloadCall = int64_t (*)(const char* url, const char* savePath, const char* params, int flag,
                                   PCDNDownloadCallback callback);

  explicit FileDownloader(std::vector<Task> tasks,
                          DownloadCall downloadCall = &PcdnInterfaceHelper::dlPCDNDownload);
  ~FileDownloader();

  FileDownloader(const FileDownloader&) = delete;
  FileDownloader& operator=(const FileDownloader&) = delete;

  void Start();
  // -1 when Start made no ids; otherwise closes every id and returns 0.
  int Close();
  // Mean of the non-negative "itf-progress" answers.
  float GetProgress();
  // speeds[0]: sum of single-source speeds and of the first figure of
  // multi-source answers ("A_B"); speeds[1]: sum of their second figures.
  void GetSpeed(float speeds[2]);
  // Sum of the non-negative "itf-total-size" answers.
  int64_t GetTotalSize();

  int32_t identity() const { return identity_; }
  const std::vector<int64_t>& downloadIds() const { return downloadIds_; }

  // Replaces the host's callback; an empty one silences the sets.
  static void SetPreloadCallback(PreloadCallback callback);
  // Handed to the engine with every download; always returns 0.
  static int PcdnNotifier(int64_t id, int index, int type, int resultCode, const char* extendInfo);

  // Sets the countdowns of `identity`: files and closes to `count`, errors to 1.
  static void AddTaskCountDown(int32_t identity, int32_t count);
  // Each returns the counter's new value, or -1 when it did not count (an
  // unknown identity, or a counter already at 0).
  static int32_t CountDownTask(int32_t identity);
  static int32_t CountDownError(int32_t identity);
  static int32_t CountDownTaskClose(int32_t identity);

 private:
  // The engine's answer to a keyed query about one download; false when the
  // engine gave none.
  static bool AskEngine(const char* key, int64_t downloadId, int bufferSize, std::string* answer);

  // Constant after construction.
  const std::vector<Task> tasks_;
  const DownloadCall downloadCall_;

  // Written by Start.
  int32_t identity_ = kNoIdentity;
  std::vector<int64_t> downloadIds_;
};

}  // namespace downloader

#endif  // DOWNLOADER_CACHE_FILEDOWNLOADER_H_
