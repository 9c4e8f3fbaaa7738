// The outcome of one file-system call at the platform seam: success, or a kind
// of failure with the system's error number (errno or GetLastError) and the
// operation and path it concerned.
//
// A value type; not synchronised.
#ifndef DOWNLOADER_PLATFORM_FILESTATUS_H_
#define DOWNLOADER_PLATFORM_FILESTATUS_H_

#include <string>
#include <utility>

namespace downloader {
namespace platform {

class FileStatus {
 public:
  enum class Kind { kOk, kNotFound, kAlreadyExists, kInvalidArgument, kIoError };

  FileStatus() = default;

  static FileStatus Ok() { return FileStatus(); }
  static FileStatus NotFound(const std::string& context, int errorNumber) {
    return FileStatus(Kind::kNotFound, context, errorNumber);
  }
  static FileStatus AlreadyExists(const std::string& context, int errorNumber) {
    return FileStatus(Kind::kAlreadyExists, context, errorNumber);
  }
  static FileStatus InvalidArgument(const std::string& context) {
    return FileStatus(Kind::kInvalidArgument, context, 0);
  }
  static FileStatus IoError(const std::string& context, int errorNumber) {
    return FileStatus(Kind::kIoError, context, errorNumber);
  }

  bool ok() const { return kind_ == Kind::kOk; }
  bool IsNotFound() const { return kind_ == Kind::kNotFound; }
  bool IsAlreadyExists() const { return kind_ == Kind::kAlreadyExists; }
  Kind kind() const { return kind_; }
  // errno on POSIX, GetLastError on Windows; 0 when the failure had none.
  int errorNumber() const { return errorNumber_; }
  // "OK", or the kind, the context and the error number.
  std::string ToString() const;

 private:
  FileStatus(Kind kind, std::string context, int errorNumber)
      : kind_(kind), context_(std::move(context)), errorNumber_(errorNumber) {}

  Kind kind_ = Kind::kOk;
  std::string context_;
  int errorNumber_ = 0;
};

}  // namespace platform
}  // namespace downloader

#endif  // DOWNLOADER_PLATFORM_FILESTATUS_H_
