#include "Storage/Persistence/DiskAdapter.h"

#include "Storage/Persistence/DiskCacheEntry.h"
#include "Storage/Persistence/File.h"
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
