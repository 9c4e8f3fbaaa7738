#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <downloader/Filter/WispDownloadExecutor.h>

#include "Base/ByteChannel.h"
#include "ExecutorReading.h"
#include "WispOriginTest.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

namespace dltest {
namespace {

using downloader::ByteChannel;
using downloader::URI;
using downloader::WispDownloadExecutor;

class WispExecutorConcurrencyTest : public WispOriginTest {};

TEST_F(WispExecutorConcurrencyTest, CloseDuringABlockedReadReturnsItPromptly) {
  // A read that waited for its time-out would wait ten minutes.
  config_->Set("read_timeout", "600000");
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("blocked", 100000, "stall_after=1000"), {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  std::vector<uint8_t> head;
  ASSERT_EQ(ReadBytes(executor.get(), 1000, 4096, &head).code, kDLSuccess);

  std::atomic<bool> returned{false};
  DLReadResult blocked;
  std::thread reader([&] {
    blocked = ReadOnce(executor.get(), 4096);
    returned = true;
  });
  EXPECT_EQ(executor->Close().code, kDLSuccess);
  EXPECT_TRUE(WaitFor([&] { return returned.load(); }, std::chrono::seconds(10)));
  reader.join();
  EXPECT_EQ(blocked.code, kDLFailure);
  EXPECT_EQ(blocked.bytes, 0u);
  EXPECT_EQ(blocked.details["reason"], "WispDownloadFilter,interrupted");
  EXPECT_EQ(executor->GetInfo("is_timeout"), "0") << "interrupted, not timed out";
}

TEST_F(WispExecutorConcurrencyTest, NoCallbackReachesTheExecutorAfterClose) {
  LogCapture log(0);
  const std::string rate = "rate=200000";
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("trickle", 50 << 20, rate), {{"player_id", "31337"}}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  ASSERT_TRUE(WaitFor([&] { return std::stoll(executor->GetInfo("downloaded_size")) > 10000; }));
  ASSERT_EQ(executor->Close().code, kDLSuccess);
  const std::string receivedAtClose = executor->GetInfo("downloaded_size");
  const size_t linesAtClose = log.Matching("[playerid:31337]").size();

  // While a second download at the same pace runs to its end, a call that
  // Close had not stopped would deliver more bytes to the first executor.
  DLResultCode secondOpened;
  auto second = OpenExecutor(SyntheticUrl("trickle-2", 100000, rate), {}, &secondOpened);
  ASSERT_EQ(secondOpened.code, kDLSuccess);
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadToEnd(second.get(), 65536, &data).code, kDLEndOfData);
  second->Close();

  EXPECT_EQ(executor->GetInfo("downloaded_size"), receivedAtClose);
  EXPECT_EQ(log.Matching("[playerid:31337]").size(), linesAtClose);
  EXPECT_EQ(ReadOnce(executor.get(), 4096).code, kDLFailure);
}

TEST_F(WispExecutorConcurrencyTest, QueueAboveTheBoundPausesTheCallAndDrainingResumesIt) {
  LogCapture log(0);
  const int64_t size = 40 << 20;
  const uint64_t heldLimit = ByteChannel::kPauseAboveBytes + (3u << 20);  // rings round up; one block in flight
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("bounded", size), {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);

  std::vector<uint8_t> data;
  size_t pauses = 0;
  while (size - static_cast<int64_t>(data.size()) > static_cast<int64_t>(ByteChannel::kPauseAboveBytes) +
                                                        (2 << 20)) {
    // Pauses and resumes alternate and only this thread resumes, so more
    // pause lines than resume lines means the call is paused now. Counting
    // new pause lines would not do: a read may see the call pause and resume.
    ASSERT_TRUE(WaitFor([&] {
      const size_t resumes = log.Matching("receiving resumed").size();
      return log.Matching("receiving paused").size() > resumes;
    })) << "no pause with " << data.size() << " bytes read";
    ++pauses;
    // Held back, the call waits for the reader: that is no receiving time.
    const int64_t receivingWhenHeld = executor->InletSoFar().receivingUs;
    EXPECT_LE(std::stoull(executor->GetInfo("memory_usage")), heldLimit);
    EXPECT_EQ(executor->InletSoFar().receivingUs, receivingWhenHeld);
    // Below the resume mark: the call must start again for the rest to come.
    const int64_t chunk = static_cast<int64_t>(ByteChannel::kPauseAboveBytes - ByteChannel::kResumeBelowBytes) + (2 << 20);
    DLReadResult last = ReadBytes(executor.get(), static_cast<int64_t>(data.size()) + chunk, 65536, &data);
    ASSERT_EQ(last.code, kDLSuccess);
    EXPECT_LE(std::stoull(executor->GetInfo("memory_usage")), heldLimit);
  }
  EXPECT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  ASSERT_EQ(static_cast<int64_t>(data.size()), size);
  ExpectSynthetic(SeedOf("bounded"), 0, data);
  EXPECT_GE(pauses, 3u);
  EXPECT_EQ(executor->InletSoFar().bytes, static_cast<uint64_t>(size));
  EXPECT_GE(log.Matching("receiving resumed").size(), pauses);
  executor->Close();
}

}  // namespace
}  // namespace dltest
