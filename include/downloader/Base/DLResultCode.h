// The outcome of any operation of the library.
//
// code 0 is success, 1 a failure, 5 the end of the data; other values are
// status codes chosen by the part that produced them. The sub-code carries the
// reason (an executor's four-character code such as H404 read as a negative
// little-endian integer, an errno, or -1 for no detail). `details` carries
// named extra information (for instance an executor's track message).
//
// Not synchronised: a value belongs to one thread at a time.
#ifndef DOWNLOADER_BASE_DLRESULTCODE_H_
#define DOWNLOADER_BASE_DLRESULTCODE_H_

#include <cstdint>
#include <map>
#include <string>

#include <downloader/DownloaderExport.h>

// The codes every part shares; parts may add their own.
enum DLResultStatus : int32_t {
  kDLSuccess = 0,
  kDLFailure = 1,
  kDLEndOfData = 5,
};

struct DOWNLOADER_EXPORT DLResultCode {
  DLResultCode();
  DLResultCode(int32_t code, int64_t subCode);
  DLResultCode(const DLResultCode& other);
  DLResultCode(DLResultCode&& other) noexcept;
  DLResultCode& operator=(const DLResultCode& other);
  DLResultCode& operator=(DLResultCode&& other) noexcept;
  ~DLResultCode();

  // Overwrites code and sub-code; details stay.
  void SetCode(int32_t newCode, int64_t newSubCode);

  bool IsSuccess() const { return code == 0; }

  int32_t code;
  int64_t subCode;
  std::map<std::string, std::string> details;
};

#endif  // DOWNLOADER_BASE_DLRESULTCODE_H_
