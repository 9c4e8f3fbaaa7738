#include "Storage/Persistence/DiskAdapter.h"

#include "Storage/ByteOrder.h"
#include "Storage/Persistence/DiskCacheEntry.h"
#include "Storage/Persistence/File.h"
#include "Storage/SegmentChunk.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {

DiskAdapter::DiskAdapter(const std::string& path, uint64_t fileSize, int64_t jobId,
                         platform::FileSystem* fileSystem)
    : path_(path),
      tag_("[diskcache][JobId" + std::to_string(jobId) + "_DiskAdapter]"),
      file_(std::make_shared<File>(path, fileSystem, jobId)) {
  if (file_->openExisting() && segmentFile_.open(file_, jobId)) {
    DL_LOGD << tag_ << "reopen file:" << path_;
  } else {
    DL_LOGD << tag_ << "failed to open file,create:" << path_ << ",file_size:" << fileSize;
    bool storable = fileSize > 0 && fileSize < SegmentFileV1::kContentFileSizeLimit;
    if (storable) {
      file_->close();
      if (file_->create()) {
        segmentFile_.create(file_, fileSize, SegmentFileV1::kDefaultChunkContentSize, jobId);
      }
    }
  }
  if (segmentFile_.is_valid()) {
    intercept_ = std::make_unique<DiskAdapterIntercept>(&segmentFile_, jobId);
  } else {
    DL_LOGW << tag_ << "invalid segment file:" << path_;
  }
}

DiskAdapter::~DiskAdapter() { file_->close(); }

int64_t DiskAdapter::write(const uint8_t* data, uint64_t len, uint64_t goff) {
  if (!intercept_) return -1;
  int64_t position = intercept_->before_write(data, goff, len);
  if (position < 0) return -1;
  // Content first; after_write then adds the checksum and, last, the bit.
  int64_t written = file_->write(data, len, static_cast<uint64_t>(position));
  if (!intercept_->after_write(data, goff, len, written)) return -1;
  return written;
}

int64_t DiskAdapter::read(uint8_t* data, uint64_t len, uint64_t goff) {
  if (!intercept_) return -1;
  int64_t position = intercept_->before_read(goff, len);
  if (position < 0) return -1;
  int64_t bytesRead = file_->read(data, len, static_cast<uint64_t>(position));
  if (!intercept_->after_read(data, goff, len, bytesRead)) return -1;
  return bytesRead;
}

int64_t DiskAdapter::readRun(uint8_t* data, uint64_t len, uint64_t goff) {
  std::vector<SegmentChunk> chunks;
  if (!intercept_ || !intercept_->before_read_run(goff, len, &chunks)) return -1;
  // Slots lie back to back, each a content with its checksum right behind:
  // one scattered read puts every content in place and every checksum aside.
  std::vector<uint8_t> checksumBytes(chunks.size() * SegmentFileV1::kChecksumSize);
  std::vector<platform::ReadSlice> slices;
  slices.reserve(2 * chunks.size());
  for (size_t i = 0; i < chunks.size(); ++i) {
    slices.push_back({data + (chunks[i].offset - goff), static_cast<size_t>(chunks[i].content_len)});
    slices.push_back({checksumBytes.data() + i * SegmentFileV1::kChecksumSize, SegmentFileV1::kChecksumSize});
  }
  int64_t bytesRead = file_->readScattered(slices, chunks.front().position);
  std::vector<uint32_t> storedChecksums(chunks.size());
  for (size_t i = 0; i < chunks.size(); ++i) {
    storedChecksums[i] = GetLittleEndian<uint32_t>(checksumBytes.data() + i * SegmentFileV1::kChecksumSize);
  }
  if (!intercept_->after_read_run(data, goff, len, bytesRead, chunks, storedChecksums)) return -1;
  return static_cast<int64_t>(len);
}

bool DiskAdapter::writeCache(const DiskCacheEntry& entry) {
  DL_LOGT << tag_ << "writeCache,entry size:" << entry.size();
  for (const auto& goffAndCell : entry.cells()) {
    const DataCell& cell = goffAndCell.second;
    if (write(cell.data.get() + cell.offset, cell.len, cell.goff) < 0) {
      DL_LOGD << tag_ << "writeCache,fail,goff:" << cell.goff << ",len:" << cell.len;
      return false;
    }
  }
  DL_LOGT << tag_ << "writeCache,success";
  return true;
}

}  // namespace storage
}  // namespace downloader
