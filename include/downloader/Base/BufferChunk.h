// One block of downloaded bytes, or one in-band status marker (a flag chunk),
// travelling through a BufferQueue from an executor to a reading stream.
//
// A data chunk owns a copy of its bytes and hands them out front to back; a
// flag chunk has no bytes and stands for a status (the end of the data, an
// error) in its place in the byte order.
//
// Not synchronised: the queue that holds a chunk serialises access to it.
#ifndef DOWNLOADER_BASE_BUFFERCHUNK_H_
#define DOWNLOADER_BASE_BUFFERCHUNK_H_

#include <cstdint>
#include <functional>
#include <memory>

#include <downloader/Base/DLReadResult.h>
#include <downloader/DownloaderExport.h>

namespace downloader {

class DOWNLOADER_EXPORT BufferChunk {
 public:
  // No block yet: `size` bytes are announced, none are readable.
  explicit BufferChunk(uint64_t size);
  // Copies the other chunk's bytes, read offset and status into a block of
  // this chunk's own, so that each chunk frees only what it owns.
  BufferChunk& operator=(const BufferChunk& other);
  BufferChunk(const BufferChunk& other) = delete;
  ~BufferChunk();

  // A chunk holding a copy of `size` bytes of `source`. Empty pointer when
  // size is non-zero and source is null, or when memory runs out. Size 0
  // gives a chunk with no block (reading it fails with code 1, sub-code -1).
  static std::shared_ptr<BufferChunk> AllocBufferChunk(const void* source, uint64_t size);

  // A chunk of `size` bytes that `fill` writes in place, so that a producer
  // reading from a file or socket needs no copy of its own. Empty pointer when
  // size is 0, when memory runs out, or when `fill` answers false.
  static std::shared_ptr<BufferChunk> AllocBufferChunkFilledBy(uint64_t size,
                                                               const std::function<bool(uint8_t*)>& fill);

  // A chunk with no bytes that reads as (flag, infoCode) exactly once.
  static std::shared_ptr<BufferChunk> AllocFlaggedChunk(int32_t flag, int32_t infoCode);

  // True when every byte was handed out; always true for a flag chunk.
  bool AllRead() const;

  // Copies up to `length` bytes from the read position into `out`:
  // - flag chunk: (flag, info code, 0 bytes), nothing changes;
  // - data chunk: (0, 0, n) with n = min(length, bytes left), 0 once all read;
  // - data chunk without a block: (1, -1, 0).
  DLReadResult ReadData(void* out, uint64_t length);

  uint64_t GetSize() const { return size_; }
  // The chunk's bytes (null for a flag chunk), for a consumer that copies them whole.
  const uint8_t* GetData() const { return data_; }
  uint64_t GetReadOffset() const { return readOffset_; }
  int32_t GetFlag() const { return flag_; }
  int32_t GetInfoCode() const { return infoCode_; }

 private:
  bool Init(const void* source);
  void SetFlag(int32_t flag) { flag_ = flag; }
  void SetInfoCode(int32_t infoCode) { infoCode_ = infoCode; }

  // The layout is part of the binary interface: hosts compiled against this
  // header allocate chunks and inline the accessors. The block's capacity
  // (it may be a recycled, larger block) is kept by the recycler that lent it.
  uint8_t* data_ = nullptr;
  uint64_t size_;
  uint64_t readOffset_ = 0;
  int32_t flag_ = 0;
  int32_t infoCode_ = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_BUFFERCHUNK_H_
