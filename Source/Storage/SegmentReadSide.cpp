#include "Storage/SegmentReadSide.h"

#include <algorithm>
#include <utility>

#include "Platform/FileSystem.h"
#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentChunk.h"
#include "Storage/SegmentFileV1.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

bool FileExists(const std::string& path) {
  platform::FileInfo info;
  return platform::FileSystem::Default()->GetFileInfo(path, &info).ok() && !info.isDirectory;
}

}  // namespace

SegmentReadSide::SegmentReadSide(std::string path, int64_t jobId) : path_(std::move(path)), jobId_(jobId) {}

SegmentReadSide::~SegmentReadSide() = default;

int64_t SegmentReadSide::Open(int64_t offset) {
  if (!DiskAdapterProvider::GetInstance().isInitialized() || !FileExists(path_)) return -1;
  std::shared_ptr<DiskAdapter> adapter = DiskAdapterProvider::GetInstance().acquire_adapter(path_, 0, jobId_);
  if (!adapter->isValid()) return -1;
  SegmentFileV1& file = adapter->segmentFile();
  int64_t fileSize = static_cast<int64_t>(file.content_file_size());
  if (offset < fileSize) {
    // The bitmap was loaded from disk when the adapter was made, or is kept
    // current by the writers that share it.
    SegmentChunk first;
    if (!file.chunk_at(static_cast<uint64_t>(offset), &first) || !first.is_filled) return -1;
  }
  adapter_ = std::move(adapter);
  return fileSize;
}

int64_t SegmentReadSide::ReadRun(int64_t offset, uint8_t* destination, size_t capacity) {
  if (!adapter_ || offset < 0) return -1;
  SegmentFileV1& file = adapter_->segmentFile();
  const uint64_t start = static_cast<uint64_t>(offset);
  const uint64_t chunkSize = file.chunk_content_size();
  if (start >= file.content_file_size() || start % chunkSize != 0) return 0;
  const uint64_t left = file.content_file_size() - start;
  const uint64_t length = left <= capacity ? left : capacity / chunkSize * chunkSize;
  if (length == 0) return 0;
  if (adapter_->readRun(destination, length, start) == static_cast<int64_t>(length)) {
    return static_cast<int64_t>(length);
  }
  const uint64_t firstChunk = std::min(chunkSize, left);
  if (length > firstChunk && adapter_->readRun(destination, firstChunk, start) == static_cast<int64_t>(firstChunk)) {
    return static_cast<int64_t>(firstChunk);
  }
  DL_LOGD << "[diskcache][jobid" << jobId_ << "_SegmentReadSide]not stored,offset:" << offset;
  return -1;
}

bool SegmentReadSide::ReadChunk(int64_t offset, ChunkBuffer* chunk) {
  chunk->size = 0;
  SegmentChunk where;
  if (!adapter_ || offset < 0 || !adapter_->segmentFile().chunk_at(static_cast<uint64_t>(offset), &where)) {
    return false;
  }
  if (chunk->capacity < where.content_len) {
    chunk->bytes.reset(new uint8_t[where.content_len]);
    chunk->capacity = where.content_len;
  }
  if (adapter_->read(chunk->bytes.get(), where.content_len, where.offset) != static_cast<int64_t>(where.content_len)) {
    DL_LOGD << "[diskcache][jobid" << jobId_ << "_SegmentReadSide]not stored,offset:" << offset;
    return false;
  }
  chunk->size = where.content_len;
  chunk->offset = static_cast<int64_t>(where.offset);
  return true;
}

}  // namespace storage
}  // namespace downloader
