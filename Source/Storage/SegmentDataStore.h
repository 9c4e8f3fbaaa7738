// A data store over one resource's segment file: the stored bytes are the
// filled chunks from the start on, the cursor loads through a segment file
// reader of its own.
//
// Thread rules: one reader thread; the reader and the shared adapter
// serialise themselves.
#ifndef DOWNLOADER_STORAGE_SEGMENTDATASTORE_H_
#define DOWNLOADER_STORAGE_SEGMENTDATASTORE_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Storage/IDataStore.h>

#include "Storage/SegmentFileReader.h"

namespace downloader {
namespace storage {

class SegmentDataStore : public IDataStore {
 public:
  // `requireComplete`: readable only once every byte is stored.
  SegmentDataStore(std::string id, const std::string& path, int64_t jobId, bool requireComplete);
  ~SegmentDataStore() override;

  std::string GetID() override;
  int64_t GetDownloadedSize() override;
  int64_t GetTotalSize() override;
  bool IsReadable() override;
  bool Seek(int64_t position) override;
  int64_t GetPosition() override;
  int64_t Load(void* buffer, uint64_t desired) override;

 private:
  // Constant after construction.
  const std::string id_;
  const bool requireComplete_;
  const std::shared_ptr<DiskAdapter> adapter_;

  SegmentFileReader reader_;
  // Reader thread only.
  int64_t position_ = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTDATASTORE_H_
