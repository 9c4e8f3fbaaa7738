#include "Storage/DiskAdapterIntercept.h"

#include <algorithm>

#include <wisp/Mutex.h>

#include "Storage/SegmentChunk.h"
#include "Storage/SegmentFileV1.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {

DiskAdapterIntercept::DiskAdapterIntercept(SegmentFileV1* segmentFile, int64_t jobId)
    : segmentFile_(segmentFile), tag_("[diskcache][jobid" + std::to_string(jobId) + "_intercept]") {}

uint32_t DiskAdapterIntercept::checksumOf(const platform::WritePart* parts, size_t count) {
  wisp::MutexLock lock(&checksumMutex_);
  checksum_.reset();
  for (size_t index = 0; index < count; ++index) {
    checksum_.update(static_cast<const uint8_t*>(parts[index].data), parts[index].length);
  }
  return checksum_.value();
}

uint32_t DiskAdapterIntercept::checksumOf(const uint8_t* data, uint64_t len) {
  platform::WritePart whole{data, static_cast<size_t>(len)};
  return checksumOf(&whole, 1);
}

bool DiskAdapterIntercept::isWholeChunk(const SegmentChunk& chunk, uint64_t goff, uint64_t len) {
  return chunk.offset == goff && chunk.content_len == len;
}

bool DiskAdapterIntercept::isFilledRun(const std::vector<SegmentChunk>& chunks, uint64_t goff, uint64_t len) {
  if (chunks.empty() || chunks.back().offset + chunks.back().content_len != goff + len) return false;
  return std::all_of(chunks.begin(), chunks.end(), [](const SegmentChunk& chunk) { return chunk.is_filled; });
}

int64_t DiskAdapterIntercept::before_write(uint32_t crc, uint64_t goff, uint64_t len) {
  // The stored checksum only matters for a filled chunk: it is read (by
  // get_segment_chunk) only then.
  SegmentChunk chunk;
  if (!segmentFile_->refreshed_chunk_at(goff, &chunk)) {
    DL_LOGW << tag_ << "before_write,failed,invalid segment,goff:" << goff;
    return -1;
  }
  // Partial chunks never reach the disk.
  if (!isWholeChunk(chunk, goff, len)) {
    DL_LOGD << tag_ << "before_write,failed,goff:" << goff << ",len:" << len << ",chunk:" << chunk.to_string();
    return -1;
  }
  if (!chunk.is_filled) {
    DL_LOGT << tag_ << "before_write,return unfilled:" << chunk.position;
    return static_cast<int64_t>(chunk.position);
  }
  if (!segmentFile_->get_segment_chunk(goff, &chunk)) {
    DL_LOGW << tag_ << "before_write,failed,invalid segment,goff:" << goff;
    return -1;
  }
  if (crc == chunk.crc) {
    DL_LOGD << tag_ << "before_write,failed,already valid,goff:" << goff;
    return -1;
  }
  // The stored chunk is damaged: clear its bit before its slot is rewritten,
  // so that no reader trusts the slot while it changes.
  if (!segmentFile_->set_fill_state(chunk.chunk_index, false)) {
    DL_LOGW << tag_ << "before_write,failed,unfill,goff:" << goff;
    return -1;
  }
  DL_LOGD << tag_ << "before_write,return wrong crc:" << chunk.position;
  return static_cast<int64_t>(chunk.position);
}

bool DiskAdapterIntercept::after_write(uint32_t crc, uint64_t goff, uint64_t len, int64_t nwritten) {
  // commit_segment_chunk reads the bit's byte afresh before it sets the bit;
  // the geometry is all that is needed here.
  SegmentChunk chunk;
  bool committed = nwritten >= 0 && static_cast<uint64_t>(nwritten) == len && segmentFile_->chunk_at(goff, &chunk) &&
                   isWholeChunk(chunk, goff, len) && segmentFile_->commit_segment_chunk(&chunk, crc);
  if (committed) {
    DL_LOGT << tag_ << "after_write,ok,goff:" << goff;
  } else {
    DL_LOGW << tag_ << "after_write,failed,goff:" << goff << ",len:" << len << ",nwritten:" << nwritten;
  }
  return committed;
}

int64_t DiskAdapterIntercept::before_read(uint64_t goff, uint64_t len) {
  SegmentChunk chunk;
  if (!segmentFile_->refreshed_chunk_at(goff, &chunk) || !isWholeChunk(chunk, goff, len) || !chunk.is_filled) {
    DL_LOGD << tag_ << "before_read,failed,goff:" << goff << ",len:" << len;
    return -1;
  }
  return static_cast<int64_t>(chunk.position);
}

bool DiskAdapterIntercept::after_read(const uint8_t* data, uint64_t goff, uint64_t len, int64_t nread) {
  // The bit is read again after the content: a writer that unfilled the
  // chunk to rewrite it while we read would show here.
  SegmentChunk chunk;
  bool whole = nread >= 0 && static_cast<uint64_t>(nread) == len && segmentFile_->get_segment_chunk(goff, &chunk) &&
               isWholeChunk(chunk, goff, len) && chunk.is_filled && checksumOf(data, len) == chunk.crc;
  if (whole) {
    DL_LOGT << tag_ << "after_read,ok,goff:" << goff;
  } else {
    DL_LOGW << tag_ << "after_read,failed,goff:" << goff << ",len:" << len << ",nread:" << nread;
  }
  return whole;
}

bool DiskAdapterIntercept::before_read_run(uint64_t goff, uint64_t len, std::vector<SegmentChunk>* chunks) {
  if (!segmentFile_->refreshed_run(goff, len, chunks) || !isFilledRun(*chunks, goff, len)) {
    DL_LOGD << tag_ << "before_read,failed,goff:" << goff << ",len:" << len;
    return false;
  }
  return true;
}

bool DiskAdapterIntercept::after_read_run(const uint8_t* data, uint64_t goff, uint64_t len, int64_t nread,
                                          const std::vector<SegmentChunk>& chunks,
                                          const std::vector<uint32_t>& storedChecksums) {
  // As after_read: the bits are read again after the contents, so that a
  // chunk unfilled for rewriting while we read shows here.
  std::vector<SegmentChunk> now;
  bool whole = nread >= 0 && static_cast<uint64_t>(nread) == len && storedChecksums.size() == chunks.size() &&
               segmentFile_->refreshed_run(goff, len, &now) && isFilledRun(now, goff, len);
  for (size_t i = 0; whole && i < chunks.size(); ++i) {
    whole = checksumOf(data + (chunks[i].offset - goff), chunks[i].content_len) == storedChecksums[i];
  }
  if (whole) {
    DL_LOGT << tag_ << "after_read,ok,goff:" << goff << ",chunks:" << chunks.size();
  } else {
    DL_LOGW << tag_ << "after_read,failed,goff:" << goff << ",len:" << len << ",nread:" << nread;
  }
  return whole;
}

}  // namespace storage
}  // namespace downloader
