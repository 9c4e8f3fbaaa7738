// A sized raw buffer that either owns its memory (Alloc) or borrows the
// caller's (SetBuffer). An owned buffer is freed by Free or the destructor.
//
// Ownership hazard: copy assignment copies size, buffer and ownership as they
// are, so the copy of an owning packet owns the same block as well. The block
// must be freed once only: before both packets Free or die, disown one of them
// by assigning an empty packet to it (assignment never frees the target's
// buffer). Not synchronised.
//
// The layout (size, buffer, borrowed flag) is part of the binary interface.
#ifndef DOWNLOADER_BASE_PACKET_H_
#define DOWNLOADER_BASE_PACKET_H_

#include <cstdint>

#include <downloader/DownloaderExport.h>

namespace downloader {

class DOWNLOADER_EXPORT Packet {
 public:
  explicit Packet(uint64_t size);
  Packet(const Packet& other) = delete;
  // Copies the three fields; the buffer this packet held is not freed (call
  // Free first if it owns one). See the ownership hazard above.
  Packet& operator=(const Packet& other);
  ~Packet();

  // Allocates `size` bytes and owns them. An earlier buffer is not freed:
  // call Free first when re-allocating an owned packet.
  void Alloc();
  // Frees an owned buffer; a borrowed one is left alone and kept.
  void Free();
  // Frees an owned buffer, then borrows `buffer` (which the caller keeps
  // alive and frees).
  void SetBuffer(void* buffer);
  // Marks the content empty by zeroing its first eight bytes; size, pointer
  // and ownership stay. Packets shorter than eight bytes zero what they have.
  void Clear();

  void* GetBuffer() const { return buffer_; }
  uint64_t GetSize() const { return size_; }
  bool IsBorrowed() const { return borrowed_; }

 private:
  uint64_t size_;
  uint8_t* buffer_ = nullptr;
  bool borrowed_ = false;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_PACKET_H_
