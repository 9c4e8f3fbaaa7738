// Threads racing on the engine bindings and the preload registry.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include <downloader/Cache/FileDownloader.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

constexpr int kThreads = 8;

// Wrapper calls from many threads while the host maps the engine: each
// thread gets the fixed answers until the mapping and the engine's soon
// after; the threads bind concurrently, writing the same slot values.
TEST(EngineConcurrencyTest, WrappersBindWhileTheHostMapsTheEngine) {
  std::atomic<int> threadsBound{0};
  std::vector<std::thread> callers;
  for (int t = 0; t < kThreads; ++t) {
    callers.emplace_back([&] {
      bool bound = false;
      dltest::WaitFor([&] {
        char buffer[32] = {};
        int64_t id = PcdnInterfaceHelper::dlPCDNOpen("r", 0, "");
        const char* calls = PcdnInterfaceHelper::dlPCDNGet("fake-calls:PCDNOpen", buffer, sizeof(buffer));
        EXPECT_GE(id, 0);
        bound = id >= 1 && calls != nullptr;
        return bound;
      });
      if (bound) ++threadsBound;
    });
  }
  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(threadsBound.load(), kThreads);
  EXPECT_TRUE(PcdnInterfaceHelper::EnsureSymbolLoaded());
}

std::atomic<int64_t> g_nextDownloadId{1000000};
int64_t WorkingDownload(const char*, const char*, const char*, int, PCDNDownloadCallback) {
  return g_nextDownloadId++;
}

std::atomic<int> g_finishCalls{0};
std::atomic<int> g_failureCalls{0};
void CountHostEvents(int32_t, int, int, int resultCode, const char*) {
  if (resultCode == FileDownloader::kFileFinished) ++g_finishCalls;
  if (resultCode != FileDownloader::kFileFinished && resultCode != 0) ++g_failureCalls;
}

// The engine reports the files of one set from several threads at once: the
// host hears exactly one finish (the last) and exactly one failure (the first).
TEST(EngineConcurrencyTest, OneFinishAndOneFailureReachTheHostWhateverTheInterleaving) {
  constexpr int kTasksPerThread = 16;
  std::vector<FileDownloader::Task> tasks(kThreads * kTasksPerThread);
  FileDownloader set(tasks, &WorkingDownload);
  set.Start();
  FileDownloader::SetPreloadCallback(&CountHostEvents);
  const std::vector<int64_t> ids = set.downloadIds();
  std::vector<std::thread> engineThreads;
  for (int t = 0; t < kThreads; ++t) {
    engineThreads.emplace_back([&ids, t] {
      for (int i = 0; i < kTasksPerThread; ++i) {
        int64_t id = ids[static_cast<size_t>(t * kTasksPerThread + i)];
        FileDownloader::PcdnNotifier(id, i, 1, -2, "failure");
        FileDownloader::PcdnNotifier(id, i, 1, FileDownloader::kFileFinished, "");
      }
    });
  }
  for (std::thread& thread : engineThreads) thread.join();
  FileDownloader::SetPreloadCallback(nullptr);
  EXPECT_EQ(g_finishCalls.load(), 1);
  EXPECT_EQ(g_failureCalls.load(), 1);
}

}  // namespace
}  // namespace downloader
