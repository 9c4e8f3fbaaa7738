#include "Storage/SegmentReadSide.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <wisp/Mutex.h>

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

SegmentReadSide::SegmentReadSide(std::string path, int64_t jobId, SegmentReadListener* listener)
    : path_(std::move(path)), jobId_(jobId), listener_(listener) {}

SegmentReadSide::~SegmentReadSide() { Stop(); }

void SegmentReadSide::Start(int64_t offset) {
  if (!DiskAdapterProvider::GetInstance().isInitialized() || !FileExists(path_)) {
    listener_->OnSegmentError(kNotStoredSubCode);
    return;
  }
  adapter_ = DiskAdapterProvider::GetInstance().acquire_adapter(path_, 0, jobId_);
  if (!adapter_->isValid()) {
    adapter_.reset();
    listener_->OnSegmentError(kNotStoredSubCode);
    return;
  }
  int64_t fileSize = static_cast<int64_t>(adapter_->segmentFile().content_file_size());
  if (offset >= fileSize) {
    listener_->OnOpen(fileSize);
    return;
  }
  std::shared_ptr<BufferChunk> first = ReadBlock(offset, 1);
  if (!first) {
    adapter_.reset();
    listener_->OnSegmentError(kNotStoredSubCode);
    return;
  }
  listener_->OnOpen(fileSize);
  uint64_t firstSize = first->GetSize();
  {
    wisp::MutexLock lock(&mutex_);
    unconsumed_ = firstSize;
  }
  listener_->OnSegmentBytes(offset, std::move(first));
  int64_t next = offset + static_cast<int64_t>(firstSize);
  if (next < fileSize) thread_ = std::thread([this, next, fileSize] { Run(next, fileSize); });
}

void SegmentReadSide::Consumed(uint64_t bytes) {
  // The reading thread waits only while it is kReadAhead ahead; waking it on
  // every small read would make it check and sleep again dozens of times per
  // block, so it is woken once, when room opens.
  bool roomOpened;
  {
    wisp::MutexLock lock(&mutex_);
    bool wasFull = unconsumed_ >= kReadAhead;
    unconsumed_ -= std::min(bytes, unconsumed_);
    roomOpened = wasFull && unconsumed_ < kReadAhead;
  }
  if (roomOpened) changed_.notify_one();
}

void SegmentReadSide::Stop() {
  {
    wisp::MutexLock lock(&mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
  adapter_.reset();
}

std::shared_ptr<BufferChunk> SegmentReadSide::ReadChunkTail(int64_t offset) {
  SegmentChunk chunk;
  if (!adapter_->segmentFile().chunk_at(static_cast<uint64_t>(offset), &chunk)) return nullptr;
  std::vector<uint8_t> whole(chunk.content_len);
  if (adapter_->read(whole.data(), chunk.content_len, chunk.offset) != static_cast<int64_t>(chunk.content_len)) {
    return nullptr;
  }
  uint64_t skip = static_cast<uint64_t>(offset) - chunk.offset;
  return BufferChunk::AllocBufferChunk(whole.data() + skip, chunk.content_len - skip);
}

std::shared_ptr<BufferChunk> SegmentReadSide::ReadBlock(int64_t offset, uint64_t chunks) {
  SegmentFileV1& file = adapter_->segmentFile();
  if (static_cast<uint64_t>(offset) % file.chunk_content_size() != 0) return ReadChunkTail(offset);
  uint64_t length = std::min(chunks * file.chunk_content_size(), file.content_file_size() - offset);
  auto fill = [this, offset, length](uint8_t* block) {
    return adapter_->readRun(block, length, static_cast<uint64_t>(offset)) == static_cast<int64_t>(length);
  };
  std::shared_ptr<BufferChunk> block = BufferChunk::AllocBufferChunkFilledBy(length, fill);
  // A gap inside the block: deliver the chunks before it one by one.
  if (!block && chunks > 1) return ReadBlock(offset, 1);
  return block;
}

bool SegmentReadSide::WaitForRoom() {
  wisp::MutexLock lock(&mutex_);
  changed_.wait(lock, [this]() REQUIRES(mutex_) { return stopping_ || unconsumed_ < kReadAhead; });
  return !stopping_;
}

void SegmentReadSide::Run(int64_t offset, int64_t fileSize) {
  while (offset < fileSize && WaitForRoom()) {
    std::shared_ptr<BufferChunk> block = ReadBlock(offset, kChunksPerBlock);
    if (!block) {
      DL_LOGD << "[diskcache][jobid" << jobId_ << "_SegmentReadSide]not stored,offset:" << offset;
      listener_->OnSegmentError(kNotStoredSubCode);
      return;
    }
    uint64_t size = block->GetSize();
    {
      wisp::MutexLock lock(&mutex_);
      unconsumed_ += size;
    }
    listener_->OnSegmentBytes(offset, std::move(block));
    offset += static_cast<int64_t>(size);
  }
}

}  // namespace storage
}  // namespace downloader
