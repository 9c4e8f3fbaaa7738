#include "Storage/SegmentDataStore.h"

#include <algorithm>
#include <utility>

#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskAdapterProvider.h"

namespace downloader {
namespace storage {

SegmentDataStore::SegmentDataStore(std::string id, const std::string& path, int64_t jobId, bool requireComplete)
    : id_(std::move(id)),
      requireComplete_(requireComplete),
      adapter_(DiskAdapterProvider::GetInstance().acquire_adapter(path, 0, jobId)),
      reader_(path, jobId) {}

SegmentDataStore::~SegmentDataStore() = default;

std::string SegmentDataStore::GetID() { return id_; }

int64_t SegmentDataStore::GetDownloadedSize() {
  if (!adapter_->isValid()) return 0;
  SegmentFileV1& file = adapter_->segmentFile();
  return static_cast<int64_t>(std::min(file.continuous_filled_size(), file.content_file_size()));
}

int64_t SegmentDataStore::GetTotalSize() {
  if (!adapter_->isValid()) return 0;
  return static_cast<int64_t>(adapter_->segmentFile().content_file_size());
}

bool SegmentDataStore::IsReadable() {
  int64_t downloaded = GetDownloadedSize();
  if (downloaded <= 0) return false;
  return !requireComplete_ || downloaded >= GetTotalSize();
}

bool SegmentDataStore::Seek(int64_t position) {
  if (position < 0 || position > GetTotalSize()) return false;
  position_ = position;
  return true;
}

int64_t SegmentDataStore::GetPosition() { return position_; }

int64_t SegmentDataStore::Load(void* buffer, uint64_t desired) {
  uint64_t delivered = reader_.read(static_cast<uint64_t>(position_), static_cast<uint8_t*>(buffer), desired);
  position_ += static_cast<int64_t>(delivered);
  return static_cast<int64_t>(delivered);
}

}  // namespace storage
}  // namespace downloader
