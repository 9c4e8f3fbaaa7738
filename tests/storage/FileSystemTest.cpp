// The platform file seam, run the same on both platforms (the Windows build
// under wine): what the storage code relies on from the system.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Platform/FileSystem.h"
#include "support/TempDir.h"

namespace downloader {
namespace platform {
namespace {

constexpr uint32_t kReadWrite = kOpenRead | kOpenWrite;

class FileSystemTest : public ::testing::Test {
 protected:
  std::unique_ptr<PositionalFile> Open(const std::string& path, uint32_t flags) {
    std::unique_ptr<PositionalFile> file;
    FileStatus status = fs_->OpenFile(path, flags, &file);
    EXPECT_TRUE(status.ok()) << status.ToString();
    return file;
  }
  std::string ReadAll(PositionalFile& file, uint64_t offset, size_t length) {
    std::string out(length, '\0');
    size_t got = 0;
    EXPECT_TRUE(file.Read(offset, length, &out[0], &got).ok());
    out.resize(got);
    return out;
  }

  FileSystem* fs_ = FileSystem::Default();
  dltest::TempDir dir_;
};

TEST_F(FileSystemTest, PositionalTransfersAndTheEndOfTheFile) {
  std::string path = dir_.Join("positional");
  std::unique_ptr<PositionalFile> missing;
  EXPECT_TRUE(fs_->OpenFile(path, kReadWrite, &missing).IsNotFound());

  auto file = Open(path, kReadWrite | kOpenCreate);
  size_t written = 0;
  ASSERT_TRUE(file->Write(4, "tail", 4, &written).ok());
  ASSERT_TRUE(file->Write(0, "he", 2, &written).ok());
  EXPECT_EQ(ReadAll(*file, 0, 100), std::string("he\0\0tail", 8));
  EXPECT_EQ(ReadAll(*file, 6, 100), "il");
  EXPECT_EQ(ReadAll(*file, 8, 10), "") << "at the end";
  EXPECT_EQ(ReadAll(*file, 1000, 10), "") << "past the end";
  uint64_t size = 0;
  ASSERT_TRUE(file->Size(&size).ok());
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(file->Read(~0ull - 2, 10, nullptr, &written).kind(), FileStatus::Kind::kInvalidArgument);

  auto truncated = Open(path, kReadWrite | kOpenTruncate);
  ASSERT_TRUE(truncated->Size(&size).ok());
  EXPECT_EQ(size, 0u);
}

// The platform's own scattered read, and the slice-by-slice one that every
// other file (a test's wrapper, say) inherits, agree on order and on the end.
class SliceBySliceFile : public PositionalFile {
 public:
  explicit SliceBySliceFile(PositionalFile* base) : base_(base) {}
  FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) override {
    return base_->Read(offset, length, buffer, bytesRead);
  }
  FileStatus Write(uint64_t offset, const void* data, size_t length, size_t* bytesWritten) override {
    return base_->Write(offset, data, length, bytesWritten);
  }
  FileStatus Size(uint64_t* size) override { return base_->Size(size); }
  FileStatus Sync() override { return base_->Sync(); }

 private:
  PositionalFile* base_;
};

TEST_F(FileSystemTest, ScatteredReadsFillTheSlicesInOrderAndStopAtTheEnd) {
  auto file = Open(dir_.Join("scattered"), kReadWrite | kOpenCreate);
  size_t written = 0;
  ASSERT_TRUE(file->Write(0, "abcdefghij", 10, &written).ok());
  SliceBySliceFile sliceBySlice(file.get());
  std::vector<PositionalFile*> readers = {file.get(), &sliceBySlice};
  for (PositionalFile* reader : readers) {
    std::string first(3, '.'), second(1, '.'), third(4, '.');
    std::vector<ReadSlice> slices = {{&first[0], 3}, {&second[0], 1}, {&third[0], 4}};
    size_t bytesRead = 0;
    ASSERT_TRUE(reader->ReadScattered(1, slices, &bytesRead).ok());
    EXPECT_EQ(bytesRead, 8u);
    EXPECT_EQ(first + second + third, "bcdefghi");

    first.assign(3, '.'), second.assign(1, '.'), third.assign(4, '.');
    ASSERT_TRUE(reader->ReadScattered(4, slices, &bytesRead).ok());
    EXPECT_EQ(bytesRead, 6u) << "the file ends inside the third slice";
    EXPECT_EQ(first + second + third, "efghij..");
    ASSERT_TRUE(reader->ReadScattered(10, slices, &bytesRead).ok());
    EXPECT_EQ(bytesRead, 0u) << "at the end";
  }
}

// A gathered write must land exactly as one write of the parts'
// concatenation would: empty parts contribute nothing, a start past the end
// leaves a gap of zeros, and more parts than one system call takes are still
// all written, in order.
TEST_F(FileSystemTest, GatheredWriteLandsAsTheConcatenationOfItsParts) {
  std::string path = dir_.Join("gathered");
  auto file = Open(path, kReadWrite | kOpenCreate);
  const WritePart parts[] = {{"he", 2}, {"", 0}, {"llo", 3}, {"!", 1}};
  size_t written = 0;
  ASSERT_TRUE(file->WriteGather(2, parts, 4, &written).ok());
  EXPECT_EQ(written, 6u);
  EXPECT_EQ(ReadAll(*file, 0, 100), std::string("\0\0hello!", 8));

  std::string many;
  for (int index = 0; index < 3000; ++index) many.push_back(static_cast<char>('a' + index % 26));
  std::vector<WritePart> bytewise;
  for (const char& byte : many) bytewise.push_back(WritePart{&byte, 1});
  ASSERT_TRUE(file->WriteGather(1, bytewise.data(), bytewise.size(), &written).ok());
  EXPECT_EQ(written, many.size());
  EXPECT_EQ(ReadAll(*file, 0, 4000), std::string("\0", 1) + many);

  EXPECT_TRUE(file->WriteGather(0, parts, 0, &written).ok()) << "nothing to write";
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(file->WriteGather(~0ull - 2, parts, 4, &written).kind(), FileStatus::Kind::kInvalidArgument);
  EXPECT_EQ(written, 0u);
}

// Room set aside is invisible to everything that judges a file by its
// length or its bytes: the length stays what the writes made it, and writes
// into the room land as anywhere else.
TEST_F(FileSystemTest, ReservedRoomLeavesTheLengthAsTheWritesMadeIt) {
  std::string path = dir_.Join("reserved");
  auto file = Open(path, kReadWrite | kOpenCreate);
  ASSERT_TRUE(file->Reserve(0, 1 << 20).ok());
  uint64_t size = 1;
  ASSERT_TRUE(file->Size(&size).ok());
  EXPECT_EQ(size, 0u);
  size_t written = 0;
  ASSERT_TRUE(file->Write(4096, "tail", 4, &written).ok());
  ASSERT_TRUE(file->Size(&size).ok());
  EXPECT_EQ(size, 4100u);
  EXPECT_EQ(ReadAll(*file, 4090, 100), std::string(6, '\0') + "tail");
  EXPECT_EQ(file->Reserve(~0ull - 2, 4).kind(), FileStatus::Kind::kInvalidArgument);
}

TEST_F(FileSystemTest, OneFileHeldByAWriterAndAReaderAtOnce) {
  std::string path = dir_.Join("shared");
  auto writer = Open(path, kReadWrite | kOpenCreate);
  auto reader = Open(path, kOpenRead);
  size_t written = 0;
  ASSERT_TRUE(writer->Write(0, "abc", 3, &written).ok());
  EXPECT_EQ(ReadAll(*reader, 0, 3), "abc");

  // The file may be renamed and removed under open handles (the cleaner
  // does that), and the handles keep working on it.
  std::string renamed = dir_.Join("renamed");
  ASSERT_TRUE(fs_->Rename(path, renamed).ok());
  ASSERT_TRUE(writer->Write(3, "d", 1, &written).ok());
  EXPECT_EQ(ReadAll(*reader, 0, 4), "abcd");
  FileInfo info;
  EXPECT_TRUE(fs_->GetFileInfo(path, &info).IsNotFound());
  ASSERT_TRUE(fs_->GetFileInfo(renamed, &info).ok());
  EXPECT_EQ(info.size, 4u);
  EXPECT_FALSE(info.isDirectory);
  EXPECT_GT(info.modifiedMillis, 1500000000000);
}

TEST_F(FileSystemTest, RegularOnlyRefusesADirectoryAndReadsAFileAsUsual) {
  std::unique_ptr<PositionalFile> directory;
  EXPECT_FALSE(fs_->OpenFile(dir_.path(), kOpenRead | kOpenRegularOnly, &directory).ok());
  EXPECT_EQ(directory, nullptr);

  std::string path = dir_.Join("regular");
  size_t written = 0;
  ASSERT_TRUE(Open(path, kOpenWrite | kOpenCreate)->Write(0, "bytes", 5, &written).ok());
  auto file = Open(path, kOpenRead | kOpenRegularOnly);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(ReadAll(*file, 0, 100), "bytes");
}

TEST_F(FileSystemTest, RenameReplacesAnExistingTarget) {
  std::string from = dir_.Join("from");
  std::string to = dir_.Join("to");
  size_t written = 0;
  ASSERT_TRUE(Open(from, kReadWrite | kOpenCreate)->Write(0, "new", 3, &written).ok());
  ASSERT_TRUE(Open(to, kReadWrite | kOpenCreate)->Write(0, "old!", 4, &written).ok());
  ASSERT_TRUE(fs_->Rename(from, to).ok());
  EXPECT_EQ(ReadAll(*Open(to, kOpenRead), 0, 10), "new");
}

TEST_F(FileSystemTest, DirectoriesAndUtf8Names) {
  const std::string name = "\xE7\xBC\x93\xE5\xAD\x98-caf\xC3\xA9";  // "缓存-café"
  std::string nested = dir_.Join(name + "/a/b");
  ASSERT_TRUE(fs_->CreateDirs(nested).ok());
  ASSERT_TRUE(fs_->CreateDirs(nested + "/").ok()) << "existing directories are fine";
  EXPECT_TRUE(fs_->CreateDir(nested).IsAlreadyExists());
  size_t written = 0;
  ASSERT_TRUE(Open(nested + "/" + name, kReadWrite | kOpenCreate)->Write(0, "x", 1, &written).ok());

  std::vector<std::string> names;
  ASSERT_TRUE(fs_->ListDir(dir_.path(), &names).ok());
  EXPECT_EQ(names, std::vector<std::string>({name}));
  ASSERT_TRUE(fs_->ListDir(nested, &names).ok());
  EXPECT_EQ(names, std::vector<std::string>({name}));
  FileInfo info;
  ASSERT_TRUE(fs_->GetFileInfo(nested, &info).ok());
  EXPECT_TRUE(info.isDirectory);

  EXPECT_FALSE(fs_->RemoveDir(nested).ok()) << "not empty";
  ASSERT_TRUE(fs_->RemoveFile(nested + "/" + name).ok());
  EXPECT_TRUE(fs_->RemoveDir(nested).ok());
  EXPECT_TRUE(fs_->ListDir(nested, &names).IsNotFound());
  EXPECT_TRUE(fs_->RemoveFile(nested + "/" + name).IsNotFound());
}

}  // namespace
}  // namespace platform
}  // namespace downloader
