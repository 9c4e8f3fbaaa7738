// The exported records are binary interfaces: a host compiled against these
// headers allocates them and inlines their accessors, then loads whichever
// build of the library is present. Their sizes and field offsets must not move.
//
// Public fields are checked with offsetof. DLResultCode and DLReadResult are
// not standard-layout (a std::map member, a base with members), but gcc and
// clang compute offsetof for classes without virtual bases, as a host's
// compiler does. Private fields are checked through a mirror of the expected
// layout: its size must match at compile time, and the bytes of a live object
// must hold what the public accessors say, at the mirror's offsets.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Base/BufferQueue.h>
#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/DLResultCode.h>
#include <downloader/Base/Packet.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

using Details = std::map<std::string, std::string>;

static_assert(offsetof(DLResultCode, code) == 0, "code first");
static_assert(offsetof(DLResultCode, subCode) == 8, "sub-code second, 64-bit aligned");
static_assert(offsetof(DLResultCode, details) == 16, "details third");
static_assert(sizeof(DLResultCode) == 16 + sizeof(Details), "nothing after the details");

static_assert(std::is_base_of<DLResultCode, DLReadResult>::value, "a read result is an outcome first");
static_assert(offsetof(DLReadResult, code) == 0, "the outcome's fields lead");
static_assert(offsetof(DLReadResult, bytes) == sizeof(DLResultCode), "the byte count follows the outcome");
static_assert(sizeof(DLReadResult) == sizeof(DLResultCode) + 8, "nothing after the byte count");

#pragma GCC diagnostic pop

namespace downloader {
namespace {

struct ChunkImage {
  uint8_t* data;
  uint64_t size;
  uint64_t readOffset;
  int32_t flag;
  int32_t infoCode;
};
static_assert(sizeof(BufferChunk) == 32, "data, size, read offset, flag, info code and nothing else");
static_assert(sizeof(BufferChunk) == sizeof(ChunkImage) && alignof(BufferChunk) == alignof(ChunkImage),
              "BufferChunk follows ChunkImage");
static_assert(offsetof(ChunkImage, size) == 8 && offsetof(ChunkImage, readOffset) == 16 &&
                  offsetof(ChunkImage, flag) == 24 && offsetof(ChunkImage, infoCode) == 28,
              "the chunk's offsets on 64-bit");

struct PacketImage {
  uint64_t size;
  uint8_t* buffer;
  bool borrowed;
};
static_assert(sizeof(Packet) == 24, "size, buffer, borrowed flag and nothing else");
static_assert(sizeof(Packet) == sizeof(PacketImage) && alignof(Packet) == alignof(PacketImage),
              "Packet follows PacketImage");
static_assert(offsetof(PacketImage, buffer) == 8 && offsetof(PacketImage, borrowed) == 16,
              "the packet's offsets on 64-bit");

struct QueueImage {
  std::deque<std::shared_ptr<BufferChunk>> chunks;
  std::mutex mutex;
  std::atomic<uint64_t> totalBytes;
};
static_assert(sizeof(BufferQueue) == sizeof(QueueImage) && alignof(BufferQueue) == alignof(QueueImage),
              "BufferQueue follows QueueImage");

template <typename Image, typename Record>
Image ImageOf(const Record& record) {
  Image image;
  std::memcpy(&image, static_cast<const void*>(&record), sizeof(Image));
  return image;
}

TEST(RecordLayoutTest, ChunkFieldsSitWhereTheirImageSaysInDataAndFlagChunks) {
  const char text[] = "abcdef";
  std::shared_ptr<BufferChunk> data = BufferChunk::AllocBufferChunk(text, 6);
  char out[2];
  data->ReadData(out, sizeof(out));
  ChunkImage image = ImageOf<ChunkImage>(*data);
  ASSERT_NE(image.data, nullptr);
  EXPECT_EQ(std::memcmp(image.data, text, 6), 0);
  EXPECT_EQ(image.size, 6u);
  EXPECT_EQ(image.readOffset, 2u);
  EXPECT_EQ(image.flag, 0);
  EXPECT_EQ(image.infoCode, 0);

  image = ImageOf<ChunkImage>(*BufferChunk::AllocFlaggedChunk(5, -7));
  EXPECT_EQ(image.data, nullptr);
  EXPECT_EQ(image.size, 0u);
  EXPECT_EQ(image.flag, 5);
  EXPECT_EQ(image.infoCode, -7);
}

TEST(RecordLayoutTest, PacketFieldsSitWhereTheirImageSays) {
  Packet packet(16);
  packet.Alloc();
  PacketImage image = ImageOf<PacketImage>(packet);
  EXPECT_EQ(image.size, 16u);
  EXPECT_EQ(image.buffer, packet.GetBuffer());
  EXPECT_FALSE(image.borrowed);
  std::vector<uint8_t> mine(16);
  packet.SetBuffer(mine.data());
  image = ImageOf<PacketImage>(packet);
  EXPECT_EQ(image.buffer, mine.data());
  EXPECT_TRUE(image.borrowed);
}

// The chunk queue leads and the byte count closes the object: an append
// changes no byte in between, where the mutex sits, unlocked before and after.
TEST(RecordLayoutTest, QueueLeadsAndTotalBytesCloseTheQueue) {
  auto queue = std::make_unique<BufferQueue>();
  const char text[] = "0123456789";
  // One append and read first, so that a mutex set up lazily is set up.
  queue->AppendData(BufferChunk::AllocBufferChunk(text, 1));
  char out[1];
  queue->ReadData(out, sizeof(out));

  std::vector<uint8_t> before(sizeof(BufferQueue));
  std::memcpy(before.data(), static_cast<const void*>(queue.get()), before.size());
  queue->AppendData(BufferChunk::AllocBufferChunk(text, 10));
  std::vector<uint8_t> after(sizeof(BufferQueue));
  std::memcpy(after.data(), static_cast<const void*>(queue.get()), after.size());

  for (size_t i = offsetof(QueueImage, mutex); i < offsetof(QueueImage, totalBytes); ++i) {
    EXPECT_EQ(before[i], after[i]) << "byte " << i << " changed by an append";
  }
  uint64_t totalBytes = 0;
  std::memcpy(&totalBytes, after.data() + offsetof(QueueImage, totalBytes), sizeof(totalBytes));
  EXPECT_EQ(totalBytes, 10u);
  EXPECT_EQ(queue->GetTotalBytes(), 10u);
}

}  // namespace
}  // namespace downloader
