// The bytes one writer holds for one file and has not written yet: cells
// keyed by resource offset, each the start of one chunk.
//
// The pending cell is the cell inserted last; only it grows (`append`), and
// only at its end. A cell that is not pending can therefore never be
// completed; `dropUnfinishedPending` lets a new cell replace an unfinished
// pending one instead of carrying dead bytes until the next flush.
//
// Thread rules: owned by one writer and used on the storage thread only; not
// synchronised.
//
// Edge cases: `append` takes nothing when there is no pending cell, when goff
// does not continue the pending cell exactly, or when the cell is full.
// `cacheData` refuses a cell for an offset that already has one.
// `writeToDisk` deletes every cell whatever the outcome of the writes.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DISKCACHEENTRY_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DISKCACHEENTRY_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace downloader {
namespace storage {

class DiskAdapter;

// Bytes a cell holds by reference: `bytes` points at the first of `length`
// bytes and keeps the buffer around them alive. Cells take the buffers the
// storage dispatch copied into instead of copying once more.
struct CellPiece {
  std::shared_ptr<const uint8_t> bytes;
  uint64_t length = 0;
};

struct DataCell {
  // Resource offset of the first byte of the first piece.
  uint64_t goff = 0;
  // The cell's bytes in resource order.
  std::vector<CellPiece> pieces;
  // Valid bytes: the pieces' lengths added up.
  uint64_t len = 0;
  // The content length of the cell's chunk.
  uint64_t cap = 0;
};

class DiskCacheEntry {
 public:
  DiskCacheEntry(std::shared_ptr<DiskAdapter> adapter, int64_t jobId);

  DiskCacheEntry(const DiskCacheEntry&) = delete;
  DiskCacheEntry& operator=(const DiskCacheEntry&) = delete;

  // Bytes of data appended to the pending cell, which keeps a reference to
  // them (no copy).
  uint64_t append(uint64_t goff, const std::shared_ptr<const uint8_t>& data, uint64_t len);
  // Inserts `cell` and makes it the pending cell.
  bool cacheData(DataCell cell);
  // Removes the pending cell when it is not full; returns its length.
  uint64_t dropUnfinishedPending();
  // Has the adapter write every cell, then deletes them all.
  bool writeToDisk();
  void deleteDataCells();

  uint64_t size() const { return mSize_; }
  const std::map<uint64_t, DataCell>& cells() const { return mSet_; }

  // The use stamp the owning DiskCache files this entry under.
  uint64_t useStamp() const { return useStamp_; }
  void setUseStamp(uint64_t stamp) { useStamp_ = stamp; }

 private:
  // Constant after construction.
  const std::shared_ptr<DiskAdapter> adapter_;
  const std::string tag_;

  std::map<uint64_t, DataCell> mSet_;
  uint64_t mSize_ = 0;
  // Key of the pending cell in mSet_, when there is one.
  bool hasPending_ = false;
  uint64_t pendingGoff_ = 0;
  uint64_t useStamp_ = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DISKCACHEENTRY_H_
