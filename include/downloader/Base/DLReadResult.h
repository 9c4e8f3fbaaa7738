// The outcome of a read: a DLResultCode followed by the number of bytes read.
//
// A read that returns code 0 with 0 bytes means "nothing yet, read again";
// code 5 is the end of the data. Not synchronised.
#ifndef DOWNLOADER_BASE_DLREADRESULT_H_
#define DOWNLOADER_BASE_DLREADRESULT_H_

#include <cstdint>

#include <downloader/Base/DLResultCode.h>
#include <downloader/DownloaderExport.h>

struct DOWNLOADER_EXPORT DLReadResult : public DLResultCode {
  DLReadResult();
  DLReadResult(const DLReadResult& other);
  DLReadResult(DLReadResult&& other) noexcept;
  DLReadResult& operator=(const DLReadResult& other);
  DLReadResult& operator=(DLReadResult&& other) noexcept;
  ~DLReadResult();

  // Mind the order: the byte count comes second, the sub-code last. Details
  // stay as they were.
  void Set(int32_t newCode, uint64_t newBytes, int64_t newSubCode);

  uint64_t bytes;
};

#endif  // DOWNLOADER_BASE_DLREADRESULT_H_
