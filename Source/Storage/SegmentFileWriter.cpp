#include "Storage/SegmentFileWriter.h"

#include <algorithm>
#include <cstring>

#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskCache.h"
#include "Storage/Persistence/Segment.h"
#include "Storage/SegmentChunk.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

uint64_t EffectiveFlushLimit(int64_t flushLimit) {
  return static_cast<uint64_t>(flushLimit > 0 ? flushLimit : SegmentFileWriter::kDefaultFlushLimit);
}

std::string WriterTag(int64_t jobId, bool isPreload, int64_t flushLimit) {
  std::string tag = "[diskcache][jobid" + std::to_string(jobId) + "_SegmentFileWriter][";
  DL_LOGD << tag << "is_preload:" << isPreload << ",flush_limit:" << flushLimit;
  return tag;
}

}  // namespace

constexpr int64_t SegmentFileWriter::kDefaultFlushLimit;

SegmentFileWriter::SegmentFileWriter(const std::string& path, uint64_t contentSize, int64_t jobId, bool isPreload,
                                     int64_t flushLimit, DiskAdapterProvider& provider)
    : tag_(WriterTag(jobId, isPreload, flushLimit)),
      adapter_(provider.acquire_adapter(path, contentSize, jobId)),
      cache_(std::make_unique<DiskCache>(EffectiveFlushLimit(flushLimit), jobId)),
      segment_(std::make_unique<Segment>(adapter_, cache_.get(), jobId)) {}

SegmentFileWriter::~SegmentFileWriter() { DL_LOGD << tag_ << "destruct"; }

void SegmentFileWriter::store(uint64_t goff, const uint8_t* data, uint64_t wlen) {
  if (wlen == 0) return;
  std::shared_ptr<uint8_t> copy(new uint8_t[wlen], std::default_delete<uint8_t[]>());
  std::memcpy(copy.get(), data, wlen);
  store(goff, std::shared_ptr<const uint8_t>(std::move(copy)), wlen);
}

void SegmentFileWriter::store(uint64_t goff, const std::shared_ptr<const uint8_t>& data, uint64_t wlen) {
  if (!adapter_ || !adapter_->isValid()) {
    DL_LOGD << tag_ << "store,skip,file invalid,goff:" << goff;
    return;
  }
  SegmentFileV1& segmentFile = adapter_->segmentFile();
  uint64_t fileSize = segmentFile.content_file_size();
  if (goff >= fileSize) {
    DL_LOGD << tag_ << "store,skip,goff:" << goff << ",file size:" << fileSize;
    return;
  }
  uint64_t accepted = segment_->appendCache(goff, data, wlen);
  DL_LOGT << tag_ << "store,appended:" << accepted;
  while (accepted < wlen) {
    uint64_t position = goff + accepted;
    SegmentChunk chunk;
    // The geometry is enough here: the guard checks the chunk's state when
    // the cell is written.
    if (!segmentFile.chunk_at(position, &chunk)) {
      DL_LOGD << tag_ << "store,no segment:" << position;
      return;
    }
    if (position < chunk.offset || position - chunk.offset >= chunk.content_len) {
      DL_LOGW << tag_ << "store,invalid segment:" << position << ",segment:" << chunk.to_string();
      return;
    }
    if (position == chunk.offset) {
      // Shares ownership of data's buffer, pointing `accepted` bytes in.
      std::shared_ptr<const uint8_t> rest(data, data.get() + accepted);
      uint64_t taken = store_chunk(chunk, std::move(rest), wlen - accepted);
      if (taken == 0) {
        DL_LOGD << tag_ << "store,fail chunk";
        return;
      }
      DL_LOGT << tag_ << "store,chunked:" << taken;
      accepted += taken;
      continue;
    }
    // Mid-chunk with no pending cell to continue: these bytes cannot make a
    // whole chunk.
    uint64_t restOfChunk = chunk.content_len - (position - chunk.offset);
    if (wlen - accepted <= restOfChunk) {
      DL_LOGT << tag_ << "store,drop all:" << (wlen - accepted);
      return;
    }
    DL_LOGT << tag_ << "store,drop:" << restOfChunk;
    accepted += restOfChunk;
  }
}

uint64_t SegmentFileWriter::store_chunk(const SegmentChunk& chunk, std::shared_ptr<const uint8_t> data,
                                        uint64_t wlen) {
  uint64_t taken = segment_->updateCache(chunk.offset, std::move(data), std::min(wlen, chunk.content_len),
                                         chunk.content_len);
  DL_LOGT << tag_ << "store chunk:" << chunk.to_string() << ",wlen:" << wlen;
  return taken;
}

void SegmentFileWriter::complete() {
  DL_LOGD << tag_ << "complete";
  segment_->flushCache();
}

}  // namespace storage
}  // namespace downloader
