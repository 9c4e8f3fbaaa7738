// Storage throughput beside its physical limits, measured in one run:
//
//   write  the dispatch + segment writer path storing 1 GiB in 64 KiB pieces
//          (until the completion has run on the storage thread), beside
//          plain pwrite of the same bytes in the same pieces; with the
//          producer kept at most 8 MiB ahead, and unpaced; and, as the limit
//          of the file's layout, the same bytes written chunk by chunk at
//          the slots of a segment file (each write ends inside a page);
//   read   the segment reader serving a fully filled 1 GiB file in 64 KiB
//          reads, beside `cat` of the same file to /dev/null, both with a
//          warm page cache.
//
// Usage: storage_bench <directory> [rounds] [writer|pwrite|reader]. Prints
// one line per run and, for run.sh's report, one "sample" line per run's wall
// and CPU seconds (CPU time does not count waiting for a core, which on a
// shared machine makes it the steadier figure); each round runs the peer first
// in even rounds and ours first in odd ones.
// With a third argument only that path runs (for profiling; reader writes
// its file first).
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/uio.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <condition_variable>
#include <future>
#include <mutex>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileReader.h"
#include "Storage/SegmentFileWriter.h"
#include "Storage/SegmentFileWriterDispatch.h"

extern char** environ;

namespace {

using downloader::storage::DiskAdapterProvider;
using downloader::storage::SegmentFileReader;
using downloader::storage::SegmentFileWriter;
using downloader::storage::SegmentFileWriterDispatch;
using Clock = std::chrono::steady_clock;

constexpr uint64_t kResourceSize = 1ull << 30;
constexpr uint64_t kPiece = 64 * 1024;
constexpr int kDefaultRounds = 7;
constexpr uint64_t kAheadLimit = 8ull << 20;

// One piece of the resource; its first bytes carry the piece's offset so
// that no two pieces are alike.
const std::vector<uint8_t>& PieceAt(uint64_t goff) {
  static std::vector<uint8_t> piece = [] {
    std::vector<uint8_t> bytes(kPiece);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 31 + 7);
    return bytes;
  }();
  std::memcpy(piece.data(), &goff, sizeof(goff));
  return piece;
}

double Seconds(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// CPU seconds of this process and its waited-for children (cat) so far.
double CpuSeconds() {
  double total = 0;
  for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    struct rusage usage;
    getrusage(who, &usage);
    total += usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec +
             usage.ru_stime.tv_usec / 1e6;
  }
  return total;
}

// One run: wall-clock seconds, and CPU seconds spent by all threads on it
// (the machine is shared; CPU time is the steadier measure of work).
struct Sample {
  double wall;
  double cpu;
};

double Megabytes(uint64_t bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

template <typename Run>
Sample Measure(Run run) {
  double cpuBefore = CpuSeconds();
  double wall = run();
  return Sample{wall, CpuSeconds() - cpuBefore};
}

// Runs the peer first in even rounds and ours first in odd ones, so that
// neither side always inherits the other's page cache and write-back.
template <typename Peer, typename Ours>
void InRoundOrder(int round, Peer peer, Ours ours) {
  if (round % 2 == 0) {
    peer();
    ours();
  } else {
    ours();
    peer();
  }
}

// One run for run.sh's report: "sample CASE_wall PROGRAM SECONDS" and the same
// for CPU seconds; `scale` brings a run of a different byte count to the
// seconds it would take for the resource's size.
void Emit(const char* sampleCase, const char* program, const Sample& sample, double scale = 1.0) {
  std::printf("sample %s_wall %s %.4f\nsample %s_cpu %s %.4f\n", sampleCase, program, sample.wall * scale, sampleCase,
              program, sample.cpu * scale);
}

// The caller of the dispatch never waits; a real producer (the network) is
// far slower than the disk, so its copies stay few. A benchmark producer
// posting 1 GiB at memory speed instead piles up copies in fresh memory,
// and then measures page faults. `aheadLimit` keeps the producer at most
// that many bytes ahead of the storage thread (0: unpaced), by a completion
// posted at chunk boundaries (where it flushes nothing).
double WriteThroughDispatch(const std::string& path, uint64_t aheadLimit) {
  unlink(path.c_str());
  Clock::time_point start = Clock::now();
  auto writer = std::make_shared<SegmentFileWriter>(path, kResourceSize, 1, false, 0);
  SegmentFileWriterDispatch& dispatch = SegmentFileWriterDispatch::GetInstance();
  std::mutex mutex;
  std::condition_variable caughtUp;
  uint64_t stored = 0;
  for (uint64_t goff = 0; goff < kResourceSize; goff += kPiece) {
    dispatch.store(writer, goff, PieceAt(goff).data(), kPiece);
    uint64_t posted = goff + kPiece;
    if (aheadLimit == 0 || posted % aheadLimit != 0) continue;
    dispatch.complete(writer, [&, posted] {
      std::lock_guard<std::mutex> lock(mutex);
      stored = posted;
      caughtUp.notify_all();
    });
    std::unique_lock<std::mutex> lock(mutex);
    caughtUp.wait(lock, [&] { return posted - stored <= aheadLimit; });
  }
  std::promise<void> completed;
  dispatch.complete(writer, [&completed] { completed.set_value(); });
  completed.get_future().wait();
  double seconds = Seconds(start);
  // The last job lets go of the writer just after the completion ran; until
  // then its adapter, and the open file, would be shared with the next run.
  std::weak_ptr<SegmentFileWriter> lastHolder = writer;
  writer.reset();
  while (!lastHolder.expired()) std::this_thread::yield();
  return seconds;
}

double WriteThroughDispatchPaced(const std::string& path) { return WriteThroughDispatch(path, kAheadLimit); }
double WriteThroughDispatchUnpaced(const std::string& path) { return WriteThroughDispatch(path, 0); }

// Each write run starts without the dirty pages of the one before, which
// the kernel would otherwise be writing back under it.
double Fresh(double (*run)(const std::string&), const std::string& path) {
  double seconds = run(path);
  unlink(path.c_str());
  return seconds;
}

double WriteWithPwrite(const std::string& path) {
  unlink(path.c_str());
  Clock::time_point start = Clock::now();
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) std::abort();
  for (uint64_t goff = 0; goff < kResourceSize; goff += kPiece) {
    if (pwrite(fd, PieceAt(goff).data(), kPiece, static_cast<off_t>(goff)) != static_cast<ssize_t>(kPiece)) {
      std::abort();
    }
  }
  close(fd);
  return Seconds(start);
}

// The physical limit of the segment file's layout: the same bytes, each
// 128 KiB chunk with its 4-byte checksum right behind it, so that every
// write starts and ends inside a page, as the writer's must.
double WriteWithPwriteAtSlotStride(const std::string& path) {
  constexpr uint64_t kChunk = 128 * 1024;
  constexpr uint64_t kSlot = kChunk + 4;
  constexpr uint64_t kFirstSlot = 16 + kResourceSize / kChunk / 8;
  static const std::vector<uint8_t> chunk(kChunk, 0x5A);
  unlink(path.c_str());
  Clock::time_point start = Clock::now();
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) std::abort();
  uint32_t checksum = 0;
  for (uint64_t index = 0; index < kResourceSize / kChunk; ++index) {
    struct iovec parts[2] = {{const_cast<uint8_t*>(chunk.data()), kChunk}, {&checksum, sizeof(checksum)}};
    if (pwritev(fd, parts, 2, static_cast<off_t>(kFirstSlot + index * kSlot)) != static_cast<ssize_t>(kSlot)) {
      std::abort();
    }
  }
  close(fd);
  return Seconds(start);
}

double ReadWithReader(const std::string& path) {
  std::vector<uint8_t> buffer(kPiece);
  Clock::time_point start = Clock::now();
  SegmentFileReader reader(path, 2);
  uint64_t delivered = 0;
  for (uint64_t goff = 0; goff < kResourceSize; goff += kPiece) delivered += reader.read(goff, buffer.data(), kPiece);
  double seconds = Seconds(start);
  if (delivered != kResourceSize) {
    std::fprintf(stderr, "reader delivered %llu bytes\n", static_cast<unsigned long long>(delivered));
    std::abort();
  }
  return seconds;
}

double ReadWithCat(const std::string& path) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const char* args[] = {"cat", path.c_str(), nullptr};
  Clock::time_point start = Clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, "cat", &actions, nullptr, const_cast<char* const*>(args), environ) != 0) std::abort();
  int status = 0;
  waitpid(pid, &status, 0);
  double seconds = Seconds(start);
  posix_spawn_file_actions_destroy(&actions);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) std::abort();
  return seconds;
}

void Report(const char* what, uint64_t bytes, const Sample& sample) {
  std::printf("%-24s %8.3f s %9.1f MiB/s %8.3f CPU s\n", what, sample.wall, Megabytes(bytes) / sample.wall,
              sample.cpu);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <directory> [rounds]\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : kDefaultRounds;
  DiskAdapterProvider::GetInstance().init();
  const std::string segmentPath = dir + "/cache.bench";
  const std::string plainPath = dir + "/plain.bench";
  const std::string only = argc > 3 ? argv[3] : "";
  if (only == "reader") {
    WriteThroughDispatchPaced(segmentPath);
    for (int round = 0; round < rounds; ++round) {
      Report("reader", kResourceSize, Measure([&] { return ReadWithReader(segmentPath); }));
    }
    unlink(segmentPath.c_str());
    return 0;
  }
  if (!only.empty()) {
    for (int round = 0; round < rounds; ++round) {
      bool viaWriter = only == "writer";
      Sample sample = Measure(
          [&] { return viaWriter ? Fresh(WriteThroughDispatchPaced, segmentPath) : Fresh(WriteWithPwrite, plainPath); });
      Report(viaWriter ? "dispatch+writer" : "pwrite", kResourceSize, sample);
    }
    unlink(segmentPath.c_str());
    unlink(plainPath.c_str());
    return 0;
  }

  // One unmeasured run of each first: the first run of a process also pays
  // for faulting in its heap.
  Fresh(WriteThroughDispatchPaced, segmentPath);
  Fresh(WriteWithPwrite, plainPath);
  for (int round = 0; round < rounds; ++round) {
    InRoundOrder(
        round,
        [&] {
          Sample plain = Measure([&] { return Fresh(WriteWithPwrite, plainPath); });
          Report("pwrite", kResourceSize, plain);
          Emit("paced", "pwrite", plain);
          Emit("unpaced", "pwrite", plain);
          Sample strided = Measure([&] { return Fresh(WriteWithPwriteAtSlotStride, plainPath); });
          Report("pwrite at slot stride", kResourceSize, strided);
          Emit("layout", "pwritev-at-slots", strided);
        },
        [&] {
          Sample writer = Measure([&] { return Fresh(WriteThroughDispatchPaced, segmentPath); });
          Report("dispatch+writer", kResourceSize, writer);
          Emit("paced", "downloader", writer);
          Emit("layout", "downloader", writer);
          Sample unpaced = Measure([&] { return Fresh(WriteThroughDispatchUnpaced, segmentPath); });
          Report("dispatch+writer unpaced", kResourceSize, unpaced);
          Emit("unpaced", "downloader", unpaced);
        });
  }
  // A fully filled segment file to read; one pass of each warms the cache.
  WriteThroughDispatchPaced(segmentPath);
  ReadWithCat(segmentPath);
  ReadWithReader(segmentPath);
  int fd = open(segmentPath.c_str(), O_RDONLY | O_CLOEXEC);
  off_t fileLength = lseek(fd, 0, SEEK_END);
  close(fd);
  // cat reads the slots' checksums too: its times are scaled to the payload.
  const double catScale = static_cast<double>(kResourceSize) / static_cast<double>(fileLength);
  for (int round = 0; round < rounds; ++round) {
    InRoundOrder(
        round,
        [&] {
          Sample cat = Measure([&] { return ReadWithCat(segmentPath); });
          Report("cat", static_cast<uint64_t>(fileLength), cat);
          Emit("read", "cat", cat, catScale);
        },
        [&] {
          Sample reader = Measure([&] { return ReadWithReader(segmentPath); });
          Report("reader", kResourceSize, reader);
          Emit("read", "downloader", reader);
        });
  }
  unlink(segmentPath.c_str());
  return 0;
}
