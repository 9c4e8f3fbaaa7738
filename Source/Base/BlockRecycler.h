// Recently freed large blocks of chunk memory, kept for the next chunk of the
// same size. A producer that allocates a fresh block for every read (the
// segment reading side takes 1 MiB at a time) would otherwise have the
// allocator hand the memory back to the system between blocks and fault every
// page in again, zeroed, for the next one; on a replay from the page cache
// that costs about as much as the copy itself.
//
// A kept block serves any size it can hold with at most half of it unused, so
// that the odd-sized last block of a resource reuses a full block instead of
// faulting in fresh memory, while a small chunk never pins a large block.
// Only blocks from kSmallestKept to kLargestKept bytes are kept, at most
// kMaxKeptBytes in all; the oldest goes first. Blocks are not cleared.
//
// The recycler remembers the length of every block of that range it lends, so
// that the borrower (a chunk, whose layout is fixed) needs to keep only the
// size it asked for.
//
// Thread rules: any thread (a chunk is usually filled on a producer's thread
// and freed on the reader's). mutex_ guards the kept and the lent blocks. The
// recycler is never destroyed, so that a chunk freed while the process ends is
// still safe.
#ifndef DOWNLOADER_BASE_BLOCKRECYCLER_H_
#define DOWNLOADER_BASE_BLOCKRECYCLER_H_

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include <wisp/Mutex.h>

namespace downloader {

class BlockRecycler {
 public:
  static constexpr uint64_t kSmallestKept = 64 * 1024;
  static constexpr uint64_t kLargestKept = 4 * 1024 * 1024;
  static constexpr uint64_t kMaxKeptBytes = 8 * 1024 * 1024;

  static BlockRecycler& Instance();

  BlockRecycler() = default;
  BlockRecycler(const BlockRecycler&) = delete;
  BlockRecycler& operator=(const BlockRecycler&) = delete;
  ~BlockRecycler();

  // A block of at least `size` bytes: the newest kept one that fits, else a
  // new one of exactly `size`. nullptr when memory runs out.
  uint8_t* Take(uint64_t size);
  // Keeps `block` or frees it. `size` is what its Take asked for. Null is
  // ignored.
  void Give(uint8_t* block, uint64_t size);

  uint64_t KeptBytes();

 private:
  static bool InKeptRange(uint64_t length) { return length >= kSmallestKept && length <= kLargestKept; }

  wisp::Mutex mutex_;
  // (capacity, block), oldest first.
  std::vector<std::pair<uint64_t, uint8_t*>> kept_ GUARDED_BY(mutex_);
  uint64_t keptBytes_ GUARDED_BY(mutex_) = 0;
  // Capacity of each block of the kept range now lent out.
  std::unordered_map<const uint8_t*, uint64_t> lent_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_BLOCKRECYCLER_H_
