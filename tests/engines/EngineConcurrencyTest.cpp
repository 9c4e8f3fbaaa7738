// Threads racing on the engine bindings, the PCDN executor's close and the
// preload registry.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <downloader/Base/Packet.h>
#include <downloader/Base/URIBuilder.h>
#include <downloader/Cache/FileDownloader.h>
#include <downloader/Filter/PcdnDownloadExecutor.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"
#include "support/TempDir.h"
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

int64_t EngineCount(const char* key) {
  char buffer[32] = {};
  const char* answer = PcdnInterfaceHelper::dlPCDNGet(key, buffer, sizeof(buffer));
  return answer == nullptr ? -1 : std::atoll(answer);
}

// The engine goes on calling back for downloads that the executors have
// closed, as a real engine may while its close races a delivery: each late
// callback must find no executor (alive or already destroyed) and be told to
// stop. Under the sanitizers a callback reaching a freed executor fails here.
TEST(EngineConcurrencyTest, CallbacksAfterACloseFindNoExecutor) {
  constexpr int kCloses = 16;
  constexpr int64_t kFileSize = 256 * 1024;
  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
  ASSERT_TRUE(PcdnInterfaceHelper::EnsureSymbolLoaded());
  dltest::TempDir root;
  std::ofstream(root.path() + "/late.ts", std::ios::binary) << std::string(kFileSize, 'x');
  PcdnInterfaceHelper::dlPCDNSetByKV("fake-reset", "");
  PcdnInterfaceHelper::dlPCDNSetByKV("fake-root", root.path().c_str());
  PcdnInterfaceHelper::dlPCDNSetByKV("fake-piece-size", "4096");
  // Every download waits after its first 64 KiB; its close wakes it for
  // callbacks that come too late.
  PcdnInterfaceHelper::dlPCDNSetByKV("fake-stall-after", "65536");
  PcdnInterfaceHelper::dlPCDNSetByKV("fake-late-callbacks", "8");
  const int64_t lateBefore = EngineCount("fake-late-callbacks-made");

  std::vector<std::shared_ptr<PcdnDownloadExecutor>> stillHeld;
  for (int i = 0; i < kCloses; ++i) {
    auto executor = std::make_shared<PcdnDownloadExecutor>(nullptr, nullptr);
    ASSERT_TRUE(executor->Open(URIBuilder::New().SetUrl("http://127.0.0.1/late.ts").Build()).IsSuccess());
    std::vector<uint8_t> firstBytes(4096);
    EXPECT_TRUE(dltest::WaitFor([&] {
      Packet packet(firstBytes.size());
      packet.SetBuffer(firstBytes.data());
      return executor->Read(packet).bytes > 0;
    }));
    // Closed while its delivery waits, so that the close races no callback
    // and a late one is sure to come.
    ASSERT_TRUE(dltest::WaitFor([] { return EngineCount("fake-stalled") == 1; }));
    EXPECT_TRUE(executor->Close().IsSuccess());
    if (i % 2 == 1) stillHeld.push_back(executor);
    executor.reset();
    ASSERT_TRUE(dltest::WaitFor([&] { return EngineCount("fake-late-callbacks-made") - lateBefore == i + 1; }));
  }
  PcdnInterfaceHelper::dlPCDNSetByKV("fake-reset", "");
  EXPECT_EQ(EngineCount("fake-late-callbacks-made") - lateBefore, kCloses) << "each close was told to stop at once";
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
