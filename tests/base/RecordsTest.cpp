#include <gtest/gtest.h>

#include <vector>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Base/Packet.h>

namespace downloader {
namespace {

TEST(RecordsTest, ChunkRefusesMissingBytesAndItsCopyOwnsItsOwnBytes) {
  EXPECT_FALSE(BufferChunk::AllocBufferChunk(nullptr, 10));
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
  std::vector<unsigned char> mine(16, 1);
  packet.SetBuffer(mine.data());  // frees the owned block (LeakSanitizer checks)
  EXPECT_TRUE(packet.IsBorrowed());
  packet.Free();  // borrowed: nothing freed, pointer kept
  EXPECT_EQ(packet.GetBuffer(), mine.data());

  Packet tiny(3);
  tiny.Alloc();
  tiny.Clear();  // shorter than eight bytes: stays inside the block
}

// Assignment copies the three fields as they are: the copy of an owning packet
// owns the block too, and assignment never frees the target's buffer, which is
// how a caller disowns one of the two.
TEST(RecordsTest, PacketAssignmentCopiesOwnershipAsItIs) {
  Packet owner(4);
  owner.Alloc();
  Packet copy(0);
  copy = owner;
  EXPECT_EQ(copy.GetBuffer(), owner.GetBuffer());
  EXPECT_EQ(copy.GetSize(), 4u);
  EXPECT_FALSE(copy.IsBorrowed());
  copy = Packet(0);
  EXPECT_EQ(copy.GetBuffer(), nullptr);
  EXPECT_NE(owner.GetBuffer(), nullptr);  // freed once, by its owner (AddressSanitizer checks)

  std::vector<unsigned char> mine(8);
  Packet borrower(mine.size());
  borrower.SetBuffer(mine.data());
  copy = borrower;
  EXPECT_TRUE(copy.IsBorrowed());
  EXPECT_EQ(copy.GetBuffer(), mine.data());
}

}  // namespace
}  // namespace downloader
