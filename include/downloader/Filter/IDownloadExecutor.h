// One running download of one byte range of one resource, made by a filter.
// Every delivery channel implements it: disk cache, segment files, PCDN,
// local file, HTTP.
//
// Life: created -> Open (or OpenAsync then WaitOpenResult) -> Read/Seek any
// number of times -> Close. The owning stream drives it from one thread;
// implementations receive data on their channel's own threads and hand it to
// Read through their own queue.
//
// Contract every executor keeps (the executor contract tests check it):
// - Open blocks until the first response, an error or the open time-out;
//   code 0 success, 1 failure with a four-character sub-code.
// - OpenAsync returns at once; an executor that cannot open asynchronously
//   answers (1, 0). WaitOpenResult then answers as Open would have.
// - Read fills at most the packet's size and blocks at most the read
//   time-out: (0, n > 0) bytes; (0, 0) nothing yet; (5, 0) the end of the
//   data, every time it is asked again; (1, sub-code) a failure.
// - An open at or past the end ("range_start" >= the size) never delivers a
//   byte: either Open fails (the HTTP level's H416) or the first Read answers
//   (5, 0).
// - Seek moves to an absolute offset; the next Read starts there.
// - Read or Seek after a failed Open, or after Close, fail without blocking.
// - Close may be called after a failed open and more than once; once it
//   returns, the executor calls nobody back.
// - GetInfo of an unknown key answers "".
#ifndef DOWNLOADER_FILTER_IDOWNLOADEXECUTOR_H_
#define DOWNLOADER_FILTER_IDOWNLOADEXECUTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/DLResultCode.h>
#include <downloader/Base/Packet.h>
#include <downloader/Base/URI.h>
#include <downloader/DownloaderExport.h>

namespace downloader {

class StreamStats;

class DOWNLOADER_EXPORT IDownloadExecutor {
 public:
  IDownloadExecutor();
  virtual ~IDownloadExecutor();

  virtual DLResultCode Open(const std::shared_ptr<URI>& uri) = 0;
  virtual DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) = 0;
  virtual DLResultCode WaitOpenResult() = 0;
  virtual DLReadResult Read(Packet& packet) = 0;
  virtual DLResultCode Seek(int64_t offset) = 0;
  // The whole resource's size; 0 while unknown.
  virtual int64_t GetFileSize() = 0;
  virtual void ReservedSlot8();
  virtual void ReservedSlot9();
  virtual DLResultCode Close() = 0;
  virtual bool IsReady() = 0;
  virtual void SetHint(const std::string& hint) = 0;
  virtual std::string GetInfo(const std::string& key) = 0;
  virtual std::string GetName() = 0;
  // 2 local file, 4 HTTP; 0 by default.
  virtual int32_t GetExecutorType();
  virtual int32_t ReservedSlot16();
  // The owning stream's statistics object.
  virtual void SetStatsSink(std::shared_ptr<StreamStats> stats);
  virtual void ReservedSlot18();
  virtual void ReservedSlot19();

 protected:
  std::shared_ptr<StreamStats> stats_;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_IDOWNLOADEXECUTOR_H_
