#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/Packet.h>

namespace downloader {
namespace {

TEST(RecordsTest, ReadResultSetTakesBytesSecondAndSubCodeLast) {
  DLReadResult result;
  result.details["k"] = "v";
  result.Set(5, 100, -3);
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(result.bytes, 100u);
  EXPECT_EQ(result.subCode, -3);
  EXPECT_EQ(result.details.at("k"), "v");

  DLReadResult moved(std::move(result));
  EXPECT_EQ(moved.details.at("k"), "v");
  DLResultCode code(1, -7);
  code.details["x"] = "y";
  code.SetCode(2, 9);
  EXPECT_EQ(code.code, 2);
  EXPECT_EQ(code.subCode, 9);
  EXPECT_EQ(code.details.size(), 1u);
}

TEST(RecordsTest, ChunkHandsOutItsBytesFrontToBack) {
  const char text[] = "abcdef";
  auto chunk = BufferChunk::AllocBufferChunk(text, 6);
  ASSERT_TRUE(chunk);
  char out[8] = {};
  DLReadResult first = chunk->ReadData(out, 4);
  EXPECT_EQ(first.bytes, 4u);
  EXPECT_FALSE(chunk->AllRead());
  DLReadResult rest = chunk->ReadData(out + 4, 100);
  EXPECT_EQ(rest.bytes, 2u);
  EXPECT_TRUE(chunk->AllRead());
  EXPECT_STREQ(out, "abcdef");
  DLReadResult after = chunk->ReadData(out, 4);
  EXPECT_EQ(after.code, 0);
  EXPECT_EQ(after.bytes, 0u);
}

TEST(RecordsTest, ChunkAllocationRules) {
  EXPECT_FALSE(BufferChunk::AllocBufferChunk(nullptr, 10));
  auto empty = BufferChunk::AllocBufferChunk(nullptr, 0);
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->AllRead());
  char out[1];
  DLReadResult result = empty->ReadData(out, 1);
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.subCode, -1);

  auto flag = BufferChunk::AllocFlaggedChunk(5, -42);
  ASSERT_TRUE(flag);
  EXPECT_TRUE(flag->AllRead());
  DLReadResult flagged = flag->ReadData(out, 1);
  EXPECT_EQ(flagged.code, 5);
  EXPECT_EQ(flagged.subCode, -42);
  EXPECT_EQ(flagged.bytes, 0u);
}

TEST(RecordsTest, ChunkCopyOwnsItsOwnBytes) {
  const char text[] = "xyz";
  auto original = BufferChunk::AllocBufferChunk(text, 3);
  char out[4] = {};
  original->ReadData(out, 1);
  BufferChunk copy(0);
  copy = *original;
  original.reset();  // the copy must not point into freed memory
  EXPECT_EQ(copy.GetReadOffset(), 1u);
  EXPECT_EQ(copy.ReadData(out, 4).bytes, 2u);
  EXPECT_EQ(std::string(out, 2), "yz");
}

TEST(RecordsTest, PacketOwnershipFollowsAllocAndSetBuffer) {
  Packet packet(16);
  packet.Alloc();
  ASSERT_NE(packet.GetBuffer(), nullptr);
  EXPECT_FALSE(packet.IsBorrowed());
  std::memset(packet.GetBuffer(), 0xAB, 16);
  packet.Clear();
  auto* bytes = static_cast<unsigned char*>(packet.GetBuffer());
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(bytes[7], 0);
  EXPECT_EQ(bytes[8], 0xAB);  // Clear touches only the first eight bytes

  std::vector<unsigned char> mine(16, 1);
  packet.SetBuffer(mine.data());  // frees the owned block (LeakSanitizer checks)
  EXPECT_TRUE(packet.IsBorrowed());
  packet.Free();  // borrowed: nothing freed, pointer kept
  EXPECT_EQ(packet.GetBuffer(), mine.data());

  Packet owner(4);
  owner.Alloc();
  {
    Packet view(0);
    view = owner;  // a borrowing view: its destruction frees nothing
    EXPECT_EQ(view.GetBuffer(), owner.GetBuffer());
    EXPECT_EQ(view.GetSize(), 4u);
  }
  Packet tiny(3);
  tiny.Alloc();
  tiny.Clear();  // shorter than eight bytes: stays inside the block
}

}  // namespace
}  // namespace downloader
