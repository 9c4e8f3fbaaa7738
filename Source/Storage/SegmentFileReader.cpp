#include "Storage/SegmentFileReader.h"

#include <algorithm>
#include <cstring>

#include <wisp/Mutex.h>

#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/SegmentFileV1.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {

SegmentFileReader::SegmentFileReader(const std::string& path, int64_t jobId, DiskAdapterProvider& provider)
    : tag_("[diskcache][jobid" + std::to_string(jobId) + "_SegmentFileReader]["),
      adapter_(provider.acquire_adapter(path, 0, jobId)) {}

SegmentFileReader::~SegmentFileReader() = default;

bool SegmentFileReader::isValid() const { return adapter_ && adapter_->isValid(); }

uint64_t SegmentFileReader::content_file_size() const {
  return isValid() ? adapter_->segmentFile().content_file_size() : 0;
}

int64_t SegmentFileReader::read_chunk(const SegmentChunk& chunk, uint8_t* buffer, uint64_t length) {
  int64_t result = length == chunk.content_len ? adapter_->read(buffer, length, chunk.offset) : -1;
  DL_LOGT << tag_ << "read chunk:" << chunk.to_string() << ",result:" << result;
  return result;
}

bool SegmentFileReader::keptChunkValidLocked(const SegmentChunk& chunk) {
  if (!hasKeptChunk_ || keptIndex_ != chunk.chunk_index) return false;
  SegmentChunk now;
  hasKeptChunk_ = adapter_->segmentFile().get_segment_chunk(chunk.offset, &now) && now.is_filled &&
                  now.crc == keptCrc_;
  return hasKeptChunk_;
}

bool SegmentFileReader::loadChunkLocked(const SegmentChunk& chunk) {
  hasKeptChunk_ = false;
  // The chunk size comes from the file's header: do not allocate for a slot
  // the file does not actually hold.
  if (chunk.content_len > SegmentFileV1::kDefaultChunkContentSize &&
      !adapter_->segmentFile().slot_on_disk(chunk)) {
    return false;
  }
  keptData_.resize(chunk.content_len);
  if (read_chunk(chunk, keptData_.data(), chunk.content_len) != static_cast<int64_t>(chunk.content_len)) {
    return false;
  }
  checksum_.reset();
  checksum_.update(keptData_.data(), chunk.content_len);
  keptCrc_ = checksum_.value();
  keptIndex_ = chunk.chunk_index;
  hasKeptChunk_ = true;
  return true;
}

uint64_t SegmentFileReader::read(uint64_t goff, uint8_t* buffer, uint64_t nrequest) {
  if (!isValid()) return 0;
  SegmentFileV1& segmentFile = adapter_->segmentFile();
  uint64_t fileSize = segmentFile.content_file_size();
  if (goff >= fileSize) return 0;
  uint64_t wanted = std::min(nrequest, fileSize - goff);
  DL_LOGT << tag_ << "read,goff:" << goff << ",nrequest:" << nrequest;

  wisp::MutexLock lock(&mutex_);
  uint64_t delivered = 0;
  while (delivered < wanted) {
    uint64_t position = goff + delivered;
    // Geometry only: the guard of read_chunk, or the check of the kept
    // chunk, reads the chunk's state from disk.
    SegmentChunk chunk;
    if (!segmentFile.chunk_at(position, &chunk)) {
      DL_LOGD << tag_ << "read,no segment,goff_read:" << position;
      break;
    }
    if (position < chunk.offset || position - chunk.offset >= chunk.content_len) {
      DL_LOGW << tag_ << "read,invalid segment,goff_read:" << position << ",segment_chunk:" << chunk.to_string();
      break;
    }
    if (!keptChunkValidLocked(chunk) && !loadChunkLocked(chunk)) {
      DL_LOGD << tag_ << "read,failed to read chunk,goff_read:" << position;
      break;
    }
    uint64_t inChunk = position - chunk.offset;
    uint64_t copied = std::min(wanted - delivered, chunk.content_len - inChunk);
    std::memcpy(buffer + delivered, keptData_.data() + inChunk, copied);
    delivered += copied;
  }
  DL_LOGT << tag_ << "read result:" << delivered;
  return delivered;
}

}  // namespace storage
}  // namespace downloader
