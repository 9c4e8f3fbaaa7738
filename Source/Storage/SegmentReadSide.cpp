#include "Storage/SegmentReadSide.h"

#include <algorithm>
#include <utility>

#include "Platform/FileSystem.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileReader.h"
#include "Storage/SegmentFileV1.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

// One chunk of every segment file the system writes: the reader's unit of disk
// I/O, so a block never makes it read a chunk twice.
constexpr uint64_t kBlockSize = SegmentFileV1::kDefaultChunkContentSize;

bool FileExists(const std::string& path) {
  platform::FileInfo info;
  return platform::FileSystem::Default()->GetFileInfo(path, &info).ok() && !info.isDirectory;
}

}  // namespace

SegmentReadSide::SegmentReadSide(std::string path, int64_t jobId, SegmentReadListener* listener)
    : path_(std::move(path)), jobId_(jobId), listener_(listener), buffer_(kBlockSize) {}

SegmentReadSide::~SegmentReadSide() { Stop(); }

void SegmentReadSide::Start(int64_t offset) {
  if (!DiskAdapterProvider::GetInstance().isInitialized() || !FileExists(path_)) {
    listener_->OnSegmentError(kNotStoredSubCode);
    return;
  }
  reader_.reset(new SegmentFileReader(path_, jobId_));
  if (!reader_->isValid()) {
    reader_.reset();
    listener_->OnSegmentError(kNotStoredSubCode);
    return;
  }
  int64_t fileSize = static_cast<int64_t>(reader_->content_file_size());
  if (offset >= fileSize) {
    listener_->OnOpen(fileSize);
    return;
  }
  uint64_t first = ReadBlock(offset, fileSize);
  if (first == 0) {
    reader_.reset();
    listener_->OnSegmentError(kNotStoredSubCode);
    return;
  }
  listener_->OnOpen(fileSize);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    unconsumed_ = first;
  }
  listener_->OnSegmentBytes(offset, buffer_.data(), first);
  int64_t next = offset + static_cast<int64_t>(first);
  if (next < fileSize) thread_ = std::thread([this, next, fileSize] { Run(next, fileSize); });
}

void SegmentReadSide::Consumed(uint64_t bytes) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    unconsumed_ -= std::min(bytes, unconsumed_);
  }
  changed_.notify_all();
}

void SegmentReadSide::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
  reader_.reset();
}

uint64_t SegmentReadSide::ReadBlock(int64_t offset, int64_t fileSize) {
  // Up to the end of the chunk holding `offset`, so that later blocks start
  // on chunk boundaries.
  uint64_t toChunkEnd = kBlockSize - static_cast<uint64_t>(offset) % kBlockSize;
  uint64_t wanted = std::min<uint64_t>(toChunkEnd, static_cast<uint64_t>(fileSize - offset));
  return reader_->read(static_cast<uint64_t>(offset), buffer_.data(), wanted);
}

bool SegmentReadSide::WaitForRoom() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return stopping_ || unconsumed_ < kReadAhead; });
  return !stopping_;
}

void SegmentReadSide::Run(int64_t offset, int64_t fileSize) {
  while (offset < fileSize && WaitForRoom()) {
    uint64_t delivered = ReadBlock(offset, fileSize);
    if (delivered == 0) {
      DL_LOGD << "[diskcache][jobid" << jobId_ << "_SegmentReadSide]not stored,offset:" << offset;
      listener_->OnSegmentError(kNotStoredSubCode);
      return;
    }
    {
      std::lock_guard<std::mutex> lock(mutex_);
      unconsumed_ += delivered;
    }
    listener_->OnSegmentBytes(offset, buffer_.data(), delivered);
    offset += static_cast<int64_t>(delivered);
  }
}

}  // namespace storage
}  // namespace downloader
