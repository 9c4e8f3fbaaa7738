// The preload file downloader: identities, the countdowns that decide when
// the host hears of a set, and the queries answered by the engine per id.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <mutex>
#include <string>
#include <vector>

#include <downloader/Cache/FileDownloader.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"

namespace downloader {
namespace {

using Task = FileDownloader::Task;

struct HostEvent {
  int32_t identity;
  int index;
  int resultCode;
};

std::mutex g_mutex;
std::vector<HostEvent> g_events;  // guarded by g_mutex

void RecordHostEvent(int32_t identity, int index, int /*type*/, int resultCode, const char* /*info*/) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_events.push_back({identity, index, resultCode});
}

std::vector<HostEvent> TakeEvents() {
  std::lock_guard<std::mutex> lock(g_mutex);
  std::vector<HostEvent> taken;
  taken.swap(g_events);
  return taken;
}

// Download ids handed out by the working download call below; unique in the
// process because the id map lives as long as the process.
std::atomic<int64_t> g_nextDownloadId{100};
std::atomic<int> g_downloadCalls{0};
int g_refuseFromCall = -1;

int64_t WorkingDownload(const char*, const char*, const char*, int, PCDNDownloadCallback callback) {
  EXPECT_EQ(callback, &FileDownloader::PcdnNotifier);
  int call = g_downloadCalls++;
  if (g_refuseFromCall >= 0 && call >= g_refuseFromCall) return 0;
  return g_nextDownloadId++;
}

std::vector<Task> Tasks(int count, uint32_t flags = 0) {
  std::vector<Task> tasks;
  for (int i = 0; i < count; ++i) tasks.push_back({"http://cdn.test/f" + std::to_string(i), "", "", flags});
  return tasks;
}

class FileDownloaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TakeEvents();
    g_downloadCalls = 0;
    g_refuseFromCall = -1;
    FileDownloader::SetPreloadCallback(&RecordHostEvent);
  }
  void TearDown() override { FileDownloader::SetPreloadCallback(nullptr); }
};

TEST_F(FileDownloaderTest, IdentitiesCountFrom1000AndAnEmptySetTakesNone) {
  FileDownloader empty({});
  empty.Start();
  EXPECT_EQ(empty.identity(), FileDownloader::kNoIdentity);
  EXPECT_TRUE(empty.downloadIds().empty());
  EXPECT_EQ(empty.Close(), -1);

  FileDownloader first(Tasks(1), &WorkingDownload);
  FileDownloader second(Tasks(1), &WorkingDownload);
  first.Start();
  second.Start();
  EXPECT_EQ(first.identity(), 1000);  // the first set of this process
  EXPECT_EQ(second.identity(), 1001);
}

TEST_F(FileDownloaderTest, WithThePresentBindingStartRecordsTheRefusalAndStartsNothing) {
  FileDownloader set(Tasks(3));
  set.Start();
  EXPECT_EQ(set.downloadIds(), (std::vector<int64_t>{-1, 0, 0}));
  FileDownloader::PcdnNotifier(-1, 0, 0, 0, "");
  FileDownloader::PcdnNotifier(0, 0, 0, 0, "");
  EXPECT_TRUE(TakeEvents().empty());  // no id was registered
}

TEST_F(FileDownloaderTest, ARefusedDownloadEndsStart) {
  g_refuseFromCall = 1;
  FileDownloader set(Tasks(3), &WorkingDownload);
  set.Start();
  EXPECT_EQ(g_downloadCalls.load(), 2);
  ASSERT_EQ(set.downloadIds().size(), 3u);
  EXPECT_GE(set.downloadIds()[0], 100);
  EXPECT_EQ(set.downloadIds()[1], 0);
  EXPECT_EQ(set.downloadIds()[2], 0);
}

TEST_F(FileDownloaderTest, TheHostHearsProgressTheFirstFailureTheLastFinishAndTheLastClose) {
  FileDownloader set(Tasks(3), &WorkingDownload);
  set.Start();
  const std::vector<int64_t> ids = set.downloadIds();
  const int32_t identity = set.identity();

  FileDownloader::PcdnNotifier(ids[0], 0, 1, FileDownloader::kFileFinished, "");
  EXPECT_TRUE(TakeEvents().empty());
  FileDownloader::PcdnNotifier(ids[1], 1, 1, -3, "timeout");
  FileDownloader::PcdnNotifier(ids[2], 2, 1, -4, "again");
  std::vector<HostEvent> failures = TakeEvents();
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_EQ(failures[0].identity, identity);
  EXPECT_EQ(failures[0].index, 1);
  EXPECT_EQ(failures[0].resultCode, -3);

  FileDownloader::PcdnNotifier(ids[1], 1, 1, 0, "");
  EXPECT_EQ(TakeEvents().size(), 1u);  // plain progress always passes

  FileDownloader::PcdnNotifier(ids[1], 1, 1, FileDownloader::kFileFinished, "");
  EXPECT_TRUE(TakeEvents().empty());
  FileDownloader::PcdnNotifier(ids[2], 2, 1, FileDownloader::kFileFinished, "");
  std::vector<HostEvent> finished = TakeEvents();
  ASSERT_EQ(finished.size(), 1u);
  EXPECT_EQ(finished[0].resultCode, FileDownloader::kFileFinished);
  FileDownloader::PcdnNotifier(ids[2], 2, 1, FileDownloader::kFileFinished, "");
  EXPECT_TRUE(TakeEvents().empty());  // the counter stays at 0

  for (int64_t id : ids) FileDownloader::PcdnNotifier(id, 0, 2, FileDownloader::kDownloadClosed, "");
  std::vector<HostEvent> closed = TakeEvents();
  ASSERT_EQ(closed.size(), 1u);
  EXPECT_EQ(closed[0].resultCode, FileDownloader::kDownloadClosed);
}

TEST_F(FileDownloaderTest, EventsWithoutHostCallbackAreDropped) {
  FileDownloader set(Tasks(1), &WorkingDownload);
  set.Start();
  FileDownloader::SetPreloadCallback(nullptr);
  EXPECT_EQ(FileDownloader::PcdnNotifier(set.downloadIds()[0], 0, 1, FileDownloader::kFileFinished, ""), 0);
  FileDownloader::SetPreloadCallback(&RecordHostEvent);
  EXPECT_TRUE(TakeEvents().empty());
  // The finish was not counted while nobody listened.
  EXPECT_EQ(FileDownloader::CountDownTask(set.identity()), 0);
}

class FileDownloaderQueryTest : public FileDownloaderTest {
 protected:
  void SetUp() override {
    FileDownloaderTest::SetUp();
    ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
    PcdnInterfaceHelper::dlPCDNSetByKV("fake-reset", "");
  }

  static void Reply(const std::string& key, int64_t id, const std::string& answer) {
    PcdnInterfaceHelper::dlPCDNSetByKV(("fake-reply:" + key + ":" + std::to_string(id)).c_str(), answer.c_str());
  }
};

TEST_F(FileDownloaderQueryTest, SpeedsSizesAndProgressAddTheNonNegativeAnswers) {
  std::vector<Task> tasks = Tasks(3);
  tasks[1].flags = FileDownloader::kMultiSourceFlag;
  tasks[2].flags = FileDownloader::kMultiSourceFlag;
  FileDownloader set(tasks, &WorkingDownload);
  set.Start();
  const std::vector<int64_t> ids = set.downloadIds();

  Reply("itf-dwn-speed", ids[0], "100.5");
  Reply("itf-dwn-multi-speed", ids[1], "30_40");
  Reply("itf-dwn-multi-speed", ids[2], "-1_7");
  float speeds[2] = {-9.0f, -9.0f};
  set.GetSpeed(speeds);
  EXPECT_FLOAT_EQ(speeds[0], 130.5f);
  EXPECT_FLOAT_EQ(speeds[1], 47.0f);

  Reply("itf-dwn-multi-speed", ids[1], "0_0");
  Reply("itf-dwn-multi-speed", ids[2], "55");  // no "_": read as 0_0
  set.GetSpeed(speeds);
  EXPECT_FLOAT_EQ(speeds[0], 100.5f);
  EXPECT_FLOAT_EQ(speeds[1], 0.0f);

  Reply("itf-total-size", ids[0], "1000");
  Reply("itf-total-size", ids[1], "-1");
  Reply("itf-total-size", ids[2], "234");
  EXPECT_EQ(set.GetTotalSize(), 1234);

  Reply("itf-progress", ids[0], "0.5");
  Reply("itf-progress", ids[1], "-1");
  Reply("itf-progress", ids[2], "1");
  EXPECT_FLOAT_EQ(set.GetProgress(), 0.75f);
  Reply("itf-progress", ids[0], "-1");
  Reply("itf-progress", ids[2], "-2");
  EXPECT_TRUE(std::isnan(set.GetProgress()));
}

TEST_F(FileDownloaderQueryTest, CloseClosesEverySlotInOrder) {
  g_refuseFromCall = 1;
  FileDownloader set(Tasks(3), &WorkingDownload);
  set.Start();
  char before[16] = {};
  PcdnInterfaceHelper::dlPCDNGet("fake-calls:PCDNClose", before, sizeof(before));
  EXPECT_EQ(set.Close(), 0);
  char after[16] = {};
  PcdnInterfaceHelper::dlPCDNGet("fake-calls:PCDNClose", after, sizeof(after));
  EXPECT_EQ(std::stoi(after) - std::stoi(before), 3);  // the unset slots too
}

}  // namespace
}  // namespace downloader
