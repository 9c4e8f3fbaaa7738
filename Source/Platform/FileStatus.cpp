#include "Platform/FileStatus.h"

namespace downloader {
namespace platform {
namespace {

const char* KindName(FileStatus::Kind kind) {
  switch (kind) {
    case FileStatus::Kind::kOk:
      return "OK";
    case FileStatus::Kind::kNotFound:
      return "not found";
    case FileStatus::Kind::kAlreadyExists:
      return "already exists";
    case FileStatus::Kind::kInvalidArgument:
      return "invalid argument";
    case FileStatus::Kind::kIoError:
      return "io error";
  }
  return "unknown";
}

}  // namespace

std::string FileStatus::ToString() const {
  if (ok()) return "OK";
  return std::string(KindName(kind_)) + ": " + context_ + " (error " + std::to_string(errorNumber_) + ")";
}

}  // namespace platform
}  // namespace downloader
