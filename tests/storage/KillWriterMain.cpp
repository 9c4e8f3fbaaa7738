// The victim of the kill test: writes one resource into its segment file
// through the storage dispatch, once over, from a random offset on and in
// random pieces. It prints "ready" once the file exists, one line per piece
// posted, and "done" at the end, so that the killing parent can pick a moment.
//
// Usage: storage_kill_writer <path> <content size> <random seed> <kill at write>
// The resource's bytes are dltest::SourceByte(kKillResourceSeed, offset).
//
// With <kill at write> N > 0 the victim also kills itself (SIGKILL) at its
// N-th file write after "ready": before the write, or after half of it has
// landed. A kill from outside rarely lands between two particular writes of a
// commit, which take microseconds; this lands at every such point in turn.
#include <signal.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

#include "ForwardingFileSystem.h"
#include "KillTestResource.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileWriter.h"
#include "Storage/SegmentFileWriterDispatch.h"
#include "StorageTestUtil.h"

namespace {

using downloader::storage::SegmentFileWriter;
using downloader::storage::SegmentFileWriterDispatch;

// Chunks the storage thread may lag behind the posting thread, so that a
// kill lands while the disk is being written, not after.
constexpr uint64_t kMaxChunksInFlight = 2;
constexpr uint64_t kMaxPiece = 100000;

class Pacer {
 public:
  void Posted() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++posted_;
    caughtUp_.wait(lock, [this] { return posted_ - done_ <= kMaxChunksInFlight; });
  }
  void Done() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++done_;
    caughtUp_.notify_all();
  }
  void WaitForAll() {
    std::unique_lock<std::mutex> lock(mutex_);
    caughtUp_.wait(lock, [this] { return posted_ == done_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable caughtUp_;
  uint64_t posted_ = 0;
  uint64_t done_ = 0;
};

// Passes everything to the real file system and dies at the chosen write.
class SelfKillingFileSystem : public dltest::ForwardingFileSystem {
 public:
  SelfKillingFileSystem(uint64_t killAtWrite, bool halfWrite) : killAtWrite_(killAtWrite), halfWrite_(halfWrite) {}

  void Arm() { armed_ = true; }

 protected:
  FileStatus Write(PositionalFile* file, uint64_t offset, const void* data, size_t length,
                   size_t* bytesWritten) override {
    if (armed_ && ++writes_ == killAtWrite_) {
      if (halfWrite_) file->Write(offset, data, length / 2, bytesWritten);
      raise(SIGKILL);
    }
    return file->Write(offset, data, length, bytesWritten);
  }

 private:
  const uint64_t killAtWrite_;
  const bool halfWrite_;
  std::atomic<bool> armed_{false};
  std::atomic<uint64_t> writes_{0};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s <path> <content size> <seed> <kill at write>\n", argv[0]);
    return 2;
  }
  const std::string path = argv[1];
  const uint64_t size = std::strtoull(argv[2], nullptr, 10);
  std::mt19937_64 random(std::strtoull(argv[3], nullptr, 10));
  const uint64_t killAtWrite = std::strtoull(argv[4], nullptr, 10);
  const uint64_t chunk = dltest::kKillChunkSize;
  // Made once: the posting thread must outpace the storage thread, so that a
  // kill finds the storage thread busy.
  const std::vector<uint8_t> source = dltest::SourceBytes(dltest::kKillResourceSeed, 0, size);

  static SelfKillingFileSystem fileSystem(killAtWrite, random() % 2 == 0);
  downloader::storage::DiskAdapterProvider::GetInstance().init(&fileSystem);
  auto writer = std::make_shared<SegmentFileWriter>(path, size, 1, false, 0);
  SegmentFileWriterDispatch& dispatch = SegmentFileWriterDispatch::GetInstance();
  fileSystem.Arm();
  std::printf("ready\n");
  std::fflush(stdout);

  Pacer pacer;
  // One sweep from a random start (a chunk boundary or not) to the end, then
  // from the beginning up to the start.
  const uint64_t start = random() % 2 == 0 ? (random() % (size / chunk)) * chunk : random() % size;
  for (const auto& range : {std::make_pair(start, size), std::make_pair(uint64_t{0}, start)}) {
    for (uint64_t goff = range.first; goff < range.second;) {
      uint64_t nextBoundary = (goff / chunk + 1) * chunk;
      uint64_t len = std::min<uint64_t>({1 + random() % kMaxPiece, nextBoundary - goff, range.second - goff});
      dispatch.store(writer, goff, source.data() + goff, len);
      goff += len;
      // A complete at a chunk boundary flushes nothing but tells when the
      // storage thread got there.
      if (goff == nextBoundary || goff == range.second) {
        dispatch.complete(writer, [&pacer] { pacer.Done(); });
        pacer.Posted();
      }
      std::printf("p %llu\n", static_cast<unsigned long long>(goff));
      std::fflush(stdout);
    }
  }
  pacer.WaitForAll();
  std::printf("done\n");
  std::fflush(stdout);
  return 0;
}
