// Opens arbitrary bytes as a segment file and reads ranges out of it through
// the reader, the way a cache replay would. Beyond what the sanitizers catch
// it checks that
// - nothing is read past the end the header allows (the file's own slots),
// - nothing is ever written (a reader never repairs or recreates a file),
// - every byte delivered is the byte stored in a chunk whose bit is set.
//
// Input: the file's bytes first; the ranges to read are taken from the end
// of the input.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Platform/FileSystem.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileReader.h"

namespace {

using downloader::platform::FileInfo;
using downloader::platform::FileStatus;
using downloader::platform::FileSystem;
using downloader::platform::PositionalFile;

constexpr char kPath[] = "/fuzz/cache.segment";
constexpr int kMaxReads = 6;
constexpr uint32_t kMaxReadLength = 1 << 20;

void Fail(const char* what) {
  std::fprintf(stderr, "segment fuzzer: %s\n", what);
  std::abort();
}

// One read-only file held in memory; records how far reads reach.
class MemoryFileSystem : public FileSystem {
 public:
  explicit MemoryFileSystem(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  uint64_t farthestRead() const { return farthestRead_; }
  uint64_t writes() const { return writes_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  FileStatus OpenFile(const std::string& path, uint32_t, std::unique_ptr<PositionalFile>* file) override {
    if (path != kPath) return FileStatus::NotFound("open " + path, 2);
    file->reset(new MemoryFile(this));
    return FileStatus::Ok();
  }
  FileStatus CreateDir(const std::string& path) override { return FileStatus::IoError("mkdir " + path, 30); }
  FileStatus RemoveFile(const std::string& path) override { return FileStatus::IoError("unlink " + path, 30); }
  FileStatus RemoveDir(const std::string& path) override { return FileStatus::IoError("rmdir " + path, 30); }
  FileStatus Rename(const std::string& from, const std::string&) override {
    return FileStatus::IoError("rename " + from, 30);
  }
  FileStatus GetFileInfo(const std::string& path, FileInfo* info) override {
    if (path != kPath) return FileStatus::NotFound("stat " + path, 2);
    info->size = bytes_.size();
    return FileStatus::Ok();
  }
  FileStatus ListDir(const std::string& path, std::vector<std::string>*) override {
    return FileStatus::NotFound("opendir " + path, 2);
  }

 private:
  class MemoryFile : public PositionalFile {
   public:
    explicit MemoryFile(MemoryFileSystem* owner) : owner_(owner) {}
    FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) override {
      owner_->farthestRead_ = std::max(owner_->farthestRead_, offset + length);
      const std::vector<uint8_t>& bytes = owner_->bytes_;
      *bytesRead = offset < bytes.size() ? std::min<uint64_t>(length, bytes.size() - offset) : 0;
      if (*bytesRead > 0) std::memcpy(buffer, bytes.data() + offset, *bytesRead);
      return FileStatus::Ok();
    }
    FileStatus Write(uint64_t, const void*, size_t, size_t* bytesWritten) override {
      ++owner_->writes_;
      *bytesWritten = 0;
      return FileStatus::IoError("read-only", 30);
    }
    FileStatus Size(uint64_t* size) override {
      *size = owner_->bytes_.size();
      return FileStatus::Ok();
    }
    FileStatus Sync() override { return FileStatus::Ok(); }

   private:
    MemoryFileSystem* const owner_;
  };

  const std::vector<uint8_t> bytes_;
  uint64_t farthestRead_ = 0;
  uint64_t writes_ = 0;
};

uint32_t Le32(const std::vector<uint8_t>& bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
         static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

// The layout as the header describes it, worked out here independently of
// the code under test.
struct Layout {
  bool valid = false;
  uint64_t contentSize = 0;
  uint64_t bitmapSize = 0;
  uint64_t chunkSize = 0;
  uint64_t chunkCount = 0;
  // Where the last slot's checksum ends (or, for a header that is not
  // valid, the end of the bitmap it claims).
  uint64_t end = 16;

  explicit Layout(const std::vector<uint8_t>& bytes) {
    if (bytes.size() < 16) return;
    contentSize = Le32(bytes, 4);
    bitmapSize = Le32(bytes, 8);
    chunkSize = Le32(bytes, 12);
    end = 16 + bitmapSize;
    bool header = bytes[0] == 'd' && bytes[1] == 'l' && bytes[2] == 1 && bytes[3] == 0;
    if (!header || contentSize == 0 || chunkSize == 0) return;
    chunkCount = (contentSize + chunkSize - 1) / chunkSize;
    if (bitmapSize != (chunkCount + 7) / 8 || bytes.size() < 16 + bitmapSize) return;
    valid = true;
    uint64_t last = chunkCount - 1;
    end = Position(last) + (contentSize - last * chunkSize) + 4;
  }
  uint64_t Position(uint64_t chunk) const { return 16 + bitmapSize + chunk * (chunkSize + 4); }
  bool Filled(const std::vector<uint8_t>& bytes, uint64_t chunk) const {
    return (bytes[16 + chunk / 8] & (0x80 >> (chunk % 8))) != 0;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  struct Range {
    uint64_t goff;
    uint64_t length;
  };
  std::vector<Range> ranges(input.ConsumeIntegralInRange<int>(1, kMaxReads));
  for (Range& range : ranges) {
    range.goff = input.ConsumeIntegral<uint32_t>();
    range.length = input.ConsumeIntegralInRange<uint32_t>(0, kMaxReadLength);
  }
  MemoryFileSystem fileSystem(input.ConsumeRemainingBytes<uint8_t>());
  const std::vector<uint8_t>& bytes = fileSystem.bytes();
  Layout layout(bytes);

  downloader::storage::DiskAdapterProvider provider;
  provider.init(&fileSystem);
  downloader::storage::SegmentFileReader reader(kPath, 1, provider);
  if (reader.isValid() != layout.valid) Fail("validity differs from the header");

  static std::vector<uint8_t> buffer(kMaxReadLength);
  for (const Range& range : ranges) {
    uint64_t delivered = reader.read(range.goff, buffer.data(), range.length);
    if (delivered > range.length) Fail("delivered more than asked");
    if (delivered == 0) continue;
    if (!layout.valid || range.goff + delivered > layout.contentSize) Fail("delivered past the content");
    for (uint64_t i = 0; i < delivered; ++i) {
      uint64_t goff = range.goff + i;
      uint64_t chunk = goff / layout.chunkSize;
      if (!layout.Filled(bytes, chunk)) Fail("delivered a byte of an unfilled chunk");
      uint64_t at = layout.Position(chunk) + goff % layout.chunkSize;
      if (at >= bytes.size() || bytes[at] != buffer[i]) Fail("delivered a byte that is not the stored one");
    }
  }
  if (fileSystem.farthestRead() > layout.end) Fail("read past what the header allows");
  if (fileSystem.writes() != 0) Fail("a reader wrote to the file");
  return 0;
}
