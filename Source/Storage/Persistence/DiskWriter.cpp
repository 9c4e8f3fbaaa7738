#include "Storage/Persistence/DiskWriter.h"

#include <limits>

#include <wisp/Mutex.h>

#include "Storage/Persistence/DiskFileNameUtil.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

constexpr uint64_t kMaxAddressable = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());

}  // namespace

DiskWriter::DiskWriter(std::string filePath, platform::FileSystem* fileSystem, int64_t jobId)
    : filePath_(std::move(filePath)),
      fileSystem_(fileSystem),
      tag_("[diskcache][JobId" + std::to_string(jobId) + "_DiskWriter]") {
  DL_LOGD << tag_ << "construct,filePath:" << filePath_;
}

DiskWriter::~DiskWriter() = default;

bool DiskWriter::openFile() {
  return openFileWithFlags(platform::kOpenRead | platform::kOpenWrite | platform::kOpenCreate);
}

bool DiskWriter::openExistingFile() { return openFileWithFlags(platform::kOpenRead | platform::kOpenWrite); }

bool DiskWriter::createFile() {
  platform::FileStatus status = fileSystem_->CreateDirs(DiskFileNameUtil::getParentPath(filePath_));
  if (!status.ok()) {
    DL_LOGE << tag_ << "createFile,make_dirs,fail," << status.ToString();
    return false;
  }
  DL_LOGD << tag_ << "createFile,make_dirs,success";
  return openFileWithFlags(platform::kOpenRead | platform::kOpenWrite | platform::kOpenCreate |
                           platform::kOpenTruncate);
}

bool DiskWriter::openFileWithFlags(uint32_t flags) {
  DL_LOGD << tag_ << "openFileWithFlags,filePath:" << filePath_ << ",flags" << flags;
  wisp::MutexLock lock(&mutex_);
  if (mFd_) {
    uint32_t access = flags & (platform::kOpenRead | platform::kOpenWrite);
    if ((flags_ & access) != access) {
      DL_LOGW << tag_ << "openFileWithFlags,open,fail,already open with flags:" << flags_;
      return false;
    }
    ++openCount_;
    DL_LOGD << tag_ << "openFileWithFlags,open,success,count:" << openCount_;
    return true;
  }
  std::unique_ptr<platform::PositionalFile> file;
  platform::FileStatus status = fileSystem_->OpenFile(filePath_, flags, &file);
  if (!status.ok()) {
    DL_LOGW << tag_ << "openFileWithFlags,open,fail,errNum:" << status.errorNumber() << "," << status.ToString();
    return false;
  }
  mFd_ = std::move(file);
  flags_ = flags;
  openCount_ = 1;
  DL_LOGD << tag_ << "openFileWithFlags,open,success";
  return true;
}

std::shared_ptr<platform::PositionalFile> DiskWriter::handle() const {
  wisp::MutexLock lock(&mutex_);
  return mFd_;
}

bool DiskWriter::seek(uint64_t offset, uint64_t length) const {
  return offset <= kMaxAddressable && length <= kMaxAddressable - offset;
}

int64_t DiskWriter::readData(void* buffer, uint64_t length, uint64_t offset) {
  std::shared_ptr<platform::PositionalFile> file = handle();
  if (!file || !seek(offset, length)) {
    DL_LOGW << tag_ << "readDataInternal,seek,fail,offset:" << offset;
    return -1;
  }
  size_t bytesRead = 0;
  platform::FileStatus status = file->Read(offset, static_cast<size_t>(length), buffer, &bytesRead);
  if (!status.ok()) {
    DL_LOGE << tag_ << "readData,fail,errNum:" << status.errorNumber() << "," << status.ToString();
    return -1;
  }
  DL_LOGT << tag_ << "readData,rv:" << bytesRead;
  return static_cast<int64_t>(bytesRead);
}

int64_t DiskWriter::readScattered(const std::vector<platform::ReadSlice>& slices, uint64_t offset) {
  uint64_t length = 0;
  for (const platform::ReadSlice& slice : slices) length += slice.length;
  std::shared_ptr<platform::PositionalFile> file = handle();
  if (!file || !seek(offset, length)) {
    DL_LOGW << tag_ << "readScattered,seek,fail,offset:" << offset;
    return -1;
  }
  size_t bytesRead = 0;
  platform::FileStatus status = file->ReadScattered(offset, slices, &bytesRead);
  if (!status.ok()) {
    DL_LOGE << tag_ << "readScattered,fail,errNum:" << status.errorNumber() << "," << status.ToString();
    return -1;
  }
  DL_LOGT << tag_ << "readScattered,rv:" << bytesRead;
  return static_cast<int64_t>(bytesRead);
}

int64_t DiskWriter::writeData(const void* buffer, uint64_t length, uint64_t offset) {
  std::shared_ptr<platform::PositionalFile> file = handle();
  if (!file || !seek(offset, length)) {
    DL_LOGW << tag_ << "writeDataInternal,seek,fail,offset:" << offset;
    return -1;
  }
  size_t writtenLength = 0;
  platform::FileStatus status = file->Write(offset, buffer, static_cast<size_t>(length), &writtenLength);
  if (!status.ok() || writtenLength != length) {
    DL_LOGE << tag_ << "writeDataInternal,write,fail,writtenLength:" << writtenLength
            << ",errNum:" << status.errorNumber() << "," << status.ToString();
    return -1;
  }
  DL_LOGT << tag_ << "writeDataInternal,write,writtenLength:" << writtenLength;
  DL_LOGT << tag_ << "writeData,rv:" << length << ",ret:" << writtenLength;
  return static_cast<int64_t>(writtenLength);
}

int64_t DiskWriter::writeGather(const platform::WritePart* parts, size_t count, uint64_t offset) {
  uint64_t length = 0;
  for (size_t index = 0; index < count; ++index) length += parts[index].length;
  std::shared_ptr<platform::PositionalFile> file = handle();
  if (!file || !seek(offset, length)) {
    DL_LOGW << tag_ << "writeGather,seek,fail,offset:" << offset;
    return -1;
  }
  size_t writtenLength = 0;
  platform::FileStatus status = file->WriteGather(offset, parts, count, &writtenLength);
  if (!status.ok() || writtenLength != length) {
    DL_LOGE << tag_ << "writeGather,fail,writtenLength:" << writtenLength << ",errNum:" << status.errorNumber()
            << "," << status.ToString();
    return -1;
  }
  DL_LOGT << tag_ << "writeGather,parts:" << count << ",writtenLength:" << writtenLength;
  return static_cast<int64_t>(writtenLength);
}

bool DiskWriter::fileSize(uint64_t* size) {
  std::shared_ptr<platform::PositionalFile> file = handle();
  return file && file->Size(size).ok();
}

bool DiskWriter::reserve(uint64_t offset, uint64_t length) {
  std::shared_ptr<platform::PositionalFile> file = handle();
  if (!file || !seek(offset, length)) return false;
  platform::FileStatus status = file->Reserve(offset, length);
  if (!status.ok()) {
    DL_LOGW << tag_ << "reserve,fail,offset:" << offset << ",length:" << length << ",errNum:" << status.errorNumber()
            << "," << status.ToString();
  }
  return status.ok();
}

bool DiskWriter::flushOSBuffers() {
  std::shared_ptr<platform::PositionalFile> file = handle();
  if (!file) return false;
  platform::FileStatus status = file->Sync();
  if (!status.ok()) {
    DL_LOGE << tag_ << "flushOSBuffers,fail,errNum:" << status.errorNumber();
  }
  return status.ok();
}

void DiskWriter::closeFile() {
  std::shared_ptr<platform::PositionalFile> released;
  {
    wisp::MutexLock lock(&mutex_);
    if (openCount_ == 0) return;
    if (--openCount_ > 0) {
      DL_LOGD << tag_ << "closeFile,count down:" << openCount_;
      return;
    }
    released = std::move(mFd_);
    flags_ = 0;
  }
  DL_LOGD << tag_ << "closeFile,clear";
}

bool DiskWriter::isOpen() const {
  wisp::MutexLock lock(&mutex_);
  return mFd_ != nullptr;
}

uint32_t DiskWriter::openFlags() const {
  wisp::MutexLock lock(&mutex_);
  return flags_;
}

}  // namespace storage
}  // namespace downloader
