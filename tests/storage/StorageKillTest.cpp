// Crash consistency for real: a child process writes a resource through the
// storage dispatch and is killed with SIGKILL at a random moment; the file
// must then open, and every chunk whose bit is set must hold exactly the
// resource's bytes. Half of the kills come from this process at a random
// time; the other half the child deals itself at a random file write (see
// KillWriterMain.cpp), which reaches the microsecond gaps between the writes
// of one commit that a kill from outside almost never hits. The next child continues on the same file, so recovery
// from a killed writer is exercised as well; a file that got full is
// started afresh.
//
// DL_STORAGE_KILLS sets the number of kills (default 30); kill-soak.sh runs
// a thousand. The test ends with a tally line of what it killed and checked.
#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KillTestResource.h"
#include "Storage/Persistence/File.h"
#include "Storage/SegmentFileV1.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"

extern char** environ;

namespace downloader {
namespace storage {
namespace {

constexpr int kDefaultKills = 30;
// Lines of progress the parent reads at most before it kills.
constexpr int kMaxLinesBeforeKill = 60;
// The child prints a line right after its storage thread finished a chunk,
// so a kill right after a line would always hit the same phase of the next
// chunk. A random extra delay of up to a few chunk times spreads the kills
// over every step of a commit.
constexpr int64_t kMaxPhaseMicros = 2000;
// A full sweep makes three writes per new chunk (content, checksum, bit).
constexpr uint64_t kMaxWritesBeforeSelfKill = 3 * 49;

int KillsWanted() {
  const char* text = std::getenv("DL_STORAGE_KILLS");
  int kills = text != nullptr ? std::atoi(text) : 0;
  return kills > 0 ? kills : kDefaultKills;
}

class Victim {
 public:
  // killAtWrite 0: the child only dies when this process kills it.
  Victim(const std::string& path, uint64_t seed, uint64_t killAtWrite) {
    int fds[2];
    if (pipe(fds) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::string size = std::to_string(dltest::kKillResourceSize);
    std::string seedText = std::to_string(seed);
    std::string killText = std::to_string(killAtWrite);
    std::vector<char*> args = {const_cast<char*>(DL_KILL_WRITER), const_cast<char*>(path.c_str()),
                               const_cast<char*>(size.c_str()), const_cast<char*>(seedText.c_str()),
                               const_cast<char*>(killText.c_str()), nullptr};
    if (posix_spawn(&pid_, DL_KILL_WRITER, &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    output_ = fdopen(fds[0], "r");
  }
  ~Victim() {
    if (pid_ > 0) Reap();
    if (output_ != nullptr) fclose(output_);
  }

  bool started() const { return pid_ > 0 && output_ != nullptr; }
  // The next line of the child's output; false at its end.
  bool ReadLine(std::string* line) {
    char buffer[256];
    if (fgets(buffer, sizeof(buffer), output_) == nullptr) return false;
    *line = buffer;
    return true;
  }
  // True when the kill ended the child (it may have finished on its own).
  bool KillAfter(std::chrono::microseconds phase) {
    auto moment = std::chrono::steady_clock::now() + phase;
    while (std::chrono::steady_clock::now() < moment) {
    }
    kill(pid_, SIGKILL);
    int status = Reap();
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  }
  // True when the child killed itself.
  bool WaitForSelfKill() {
    std::string line;
    while (ReadLine(&line)) {
    }
    int status = Reap();
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  }
  int Reap() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
  FILE* output_ = nullptr;
};

// Opens the file as the parent sees it after the kill and checks every filled
// chunk; returns the number of filled chunks.
uint64_t CheckFile(const std::string& path) {
  auto file = std::make_shared<File>(path);
  EXPECT_TRUE(file->openReadOnly());
  SegmentFileV1 segmentFile;
  EXPECT_TRUE(segmentFile.open(file, 0)) << "the file must open after a kill";
  uint64_t filled = 0;
  for (uint64_t i = 0; i < segmentFile.chunk_count(); ++i) {
    SegmentChunk chunk;
    EXPECT_TRUE(segmentFile.get_segment_chunk(i * segmentFile.chunk_content_size(), &chunk));
    if (!chunk.is_filled) continue;
    ++filled;
    std::vector<uint8_t> content(chunk.content_len);
    EXPECT_EQ(file->read(content.data(), content.size(), chunk.position), static_cast<int64_t>(content.size()));
    EXPECT_TRUE(content == dltest::SourceBytes(dltest::kKillResourceSeed, chunk.offset, chunk.content_len))
        << "chunk " << i << " is marked filled but holds other bytes";
    EXPECT_EQ(chunk.crc, 0u);
  }
  return filled;
}

TEST(StorageKillTest, KilledWriterLeavesOnlyWholeChunksMarkedFilled) {
  dltest::TempDir dir;
  std::string path = dir.Join("cache.victim");
  const uint64_t chunks = (dltest::kKillResourceSize + dltest::kKillChunkSize - 1) / dltest::kKillChunkSize;
  std::random_device entropy;
  const uint64_t testSeed = (static_cast<uint64_t>(entropy()) << 32) | entropy();
  SCOPED_TRACE("seed " + std::to_string(testSeed));
  std::mt19937_64 random(testSeed);

  int kills = 0;
  int selfKills = 0;
  int checks = 0;
  int wholeFiles = 0;
  uint64_t filledSeen = 0;
  for (int round = 0; kills < KillsWanted() && round < 4 * KillsWanted(); ++round) {
    bool selfKill = round % 2 == 1;
    uint64_t killAtWrite = selfKill ? 1 + random() % kMaxWritesBeforeSelfKill : 0;
    Victim victim(path, random(), killAtWrite);
    ASSERT_TRUE(victim.started());
    std::string line;
    ASSERT_TRUE(victim.ReadLine(&line)) << "no output from " << DL_KILL_WRITER;
    ASSERT_EQ(line, "ready\n");
    if (selfKill) {
      if (victim.WaitForSelfKill()) {
        ++kills;
        ++selfKills;
      }
    } else {
      int linesBeforeKill = static_cast<int>(random() % (kMaxLinesBeforeKill + 1));
      bool finished = false;
      for (int i = 0; i < linesBeforeKill && !finished; ++i) finished = !victim.ReadLine(&line) || line == "done\n";
      std::chrono::microseconds phase(static_cast<int64_t>(random() % (kMaxPhaseMicros + 1)));
      if (!finished && victim.KillAfter(phase)) ++kills;
    }

    uint64_t filled = CheckFile(path);
    if (::testing::Test::HasFailure()) return;
    ++checks;
    filledSeen += filled;
    if (filled == chunks) {
      ++wholeFiles;
      std::remove(path.c_str());
    }
  }
  std::printf("kill tally: kills=%d from_outside=%d at_a_write=%d files_checked=%d filled_chunks_checked=%llu "
              "files_completed=%d\n",
              kills, kills - selfKills, selfKills, checks, static_cast<unsigned long long>(filledSeen), wholeFiles);
  EXPECT_GE(kills, KillsWanted());
  EXPECT_GT(filledSeen, 0u) << "the victims never got a chunk onto the disk";
}

}  // namespace
}  // namespace storage
}  // namespace downloader
