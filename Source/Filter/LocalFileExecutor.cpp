#include <downloader/Filter/LocalFileExecutor.h>

#include <algorithm>
#include <cstring>

#include <downloader/Filter/LocalFileFilter.h>
#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Platform/FileSystem.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr size_t kLocalUrlPrefixLength = sizeof(LocalFileFilter::kLocalUrlPrefix) - 1;
static_assert(kLocalUrlPrefixLength == 16, "the path starts right after the 16-character prefix");

constexpr int64_t kNoDetail = -1;

}  // namespace

LocalFileExecutor::LocalFileExecutor() = default;

LocalFileExecutor::~LocalFileExecutor() = default;

DLResultCode LocalFileExecutor::Open(const std::shared_ptr<URI>& uri) {
  const std::string& url = uri != nullptr ? uri->GetStringRep() : std::string();
  const std::string path = url.size() > kLocalUrlPrefixLength ? url.substr(kLocalUrlPrefixLength) : std::string();
  DL_LOGI << "open from storage path:" << path;

  // A directory or a device may open and even report a size, but its bytes
  // are not the resource's.
  std::unique_ptr<platform::PositionalFile> file;
  platform::FileStatus status =
      platform::FileSystem::Default()->OpenFile(path, platform::kOpenRead | platform::kOpenRegularOnly, &file);
  uint64_t size = 0;
  if (status.ok()) status = file->Size(&size);

  wisp::MutexLock lock(&mutex_);
  file_.reset();
  opened_ = false;
  fileSize_ = 0;
  readPosition_ = 0;
  if (!status.ok()) {
    DL_LOGW << "file open failed:" << status.ToString();
    return DLResultCode(kDLFailure, kNotOpenSubCode);
  }
  file_ = std::move(file);
  opened_ = true;
  fileSize_ = static_cast<int64_t>(size);
  readPosition_ = std::max<int64_t>(0, RequestParams::Read(uri->GetParams()).rangeStart);
  DL_LOGI << "file open with size:" << fileSize_;
  if (fileSize_ == 0) return DLResultCode(kDLFailure, kEmptyFileSubCode);
  return DLResultCode(kDLSuccess, 0);
}

DLResultCode LocalFileExecutor::OpenAsync(const std::shared_ptr<URI>& /*uri*/) {
  return DLResultCode(kDLFailure, 0);
}

DLResultCode LocalFileExecutor::WaitOpenResult() { return DLResultCode(kDLSuccess, 0); }

DLReadResult LocalFileExecutor::Read(Packet& packet) {
  DLReadResult result;
  wisp::MutexLock lock(&mutex_);
  if (!opened_) {
    result.Set(kDLFailure, 0, kNotOpenSubCode);
    return result;
  }
  const int64_t remaining = fileSize_ - readPosition_;
  if (remaining < 1) {
    result.Set(kDLEndOfData, 0, 0);
    return result;
  }
  const uint64_t count = std::min<uint64_t>(static_cast<uint64_t>(remaining), packet.GetSize());
  if (count > 0 && packet.GetBuffer() == nullptr) {
    result.Set(kDLFailure, 0, kNoDetail);
    return result;
  }
  size_t bytesRead = 0;
  platform::FileStatus status =
      file_->Read(static_cast<uint64_t>(readPosition_), static_cast<size_t>(count), packet.GetBuffer(), &bytesRead);
  if (!status.ok() || bytesRead < count) {
    // The host may have cut the file since Open. The read still answers the
    // count its size promised, so the stream's offsets stay those of the file
    // as opened; what is missing reads as zeros, never as stale buffer bytes.
    DL_LOGW << "short file read:" << bytesRead << " of " << count << " " << status.ToString();
    std::memset(static_cast<uint8_t*>(packet.GetBuffer()) + bytesRead, 0, static_cast<size_t>(count) - bytesRead);
  }
  readPosition_ += static_cast<int64_t>(count);
  DL_LOGT << "read:" << count << " position:" << readPosition_;
  result.Set(kDLSuccess, count, 0);
  return result;
}

DLResultCode LocalFileExecutor::Seek(int64_t offset) {
  wisp::MutexLock lock(&mutex_);
  if (!opened_) return DLResultCode(kDLFailure, kNotOpenSubCode);
  if (offset < 0) return DLResultCode(kDLFailure, kNoDetail);
  readPosition_ = offset;
  return DLResultCode(kDLSuccess, 0);
}

int64_t LocalFileExecutor::GetFileSize() {
  wisp::MutexLock lock(&mutex_);
  return fileSize_;
}

DLResultCode LocalFileExecutor::Close() {
  wisp::MutexLock lock(&mutex_);
  if (opened_) {
    DL_LOGI << "file stream close";
    file_.reset();
    opened_ = false;
  }
  return DLResultCode(kDLSuccess, 0);
}

bool LocalFileExecutor::IsReady() { return true; }

void LocalFileExecutor::SetHint(const std::string& /*hint*/) {}

std::string LocalFileExecutor::GetInfo(const std::string& key) {
  if (key == "is_loaded_from_cache") return "6";
  if (key == "downloaded_size") return "0";
  return std::string();
}

std::string LocalFileExecutor::GetName() { return "LOCAL_FILE"; }

int32_t LocalFileExecutor::GetExecutorType() { return 2; }

}  // namespace downloader
