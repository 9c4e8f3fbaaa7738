// The contract every executor of the library keeps, written once as a typed,
// parameterised suite. An executor joins it with a factory:
//
//   class MyExecutorFactory : public dltest::ExecutorFactory { ... };
//   INSTANTIATE_TYPED_TEST_SUITE_P(MyExecutor, ExecutorContractTest, MyExecutorFactory);
//
// The factory serves resources of dlorigin's synthetic content (the byte at
// offset o is dlorigin::SyntheticByte(seed, o)), so every byte read is
// checked without a copy to compare against. Offsets reach an executor the
// way a stream hands them over: the request parameter "range_start" at Open,
// Seek afterwards.
//
// Cases a kind of executor cannot have (a bounded "range_end", a resource of
// unknown length, a read that waits) are skipped for it with the reason its
// factory gives.
#ifndef TESTS_FILTER_EXECUTORCONTRACT_H_
#define TESTS_FILTER_EXECUTORCONTRACT_H_

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <downloader/Base/Packet.h>
#include <downloader/Base/URI.h>
#include <downloader/Filter/IDownloadExecutor.h>

#include "ExecutorReading.h"
#include "support/WaitFor.h"

namespace dltest {

struct ContractResource {
  std::string url;
  uint64_t seed = 0;
  // Set instead of the url when this kind of executor has no such resource.
  std::string skipReason;
};

class ExecutorFactory {
 public:
  virtual ~ExecutorFactory() = default;

  // Once per test, before anything else; may fail the test (ASSERT).
  virtual void SetUp() {}
  virtual std::shared_ptr<downloader::IDownloadExecutor> NewExecutor() = 0;
  // A resource of `size` (> 0) synthetic bytes.
  virtual ContractResource MakeResource(int64_t size) = 0;
  // A URL this kind of executor serves but whose resource does not exist.
  virtual std::string MissingUrl() = 0;
  // Why "range_end" (the last byte wanted) does not bound this kind's reads;
  // "" when it does.
  virtual std::string RangeEndSkipReason() = 0;
  // A resource of `size` bytes whose length is told only by its end (an
  // HTTP body sent chunked).
  virtual ContractResource MakeUnknownLengthResource(int64_t size) = 0;
  // A resource of `size` bytes that delivers its first `delivered` bytes and
  // then nothing more while the request stays open, so that a read waits.
  virtual ContractResource MakeStallingResource(int64_t size, int64_t delivered) = 0;
};

// For executors that serve a file whose bytes are all on disk; `what` names
// the file in the reasons for the cases they cannot have.
class FileExecutorFactory : public ExecutorFactory {
 public:
  explicit FileExecutorFactory(std::string what) : what_(std::move(what)) {}
  std::string RangeEndSkipReason() override {
    return what_ + " is served from \"range_start\" to its end; \"range_end\" bounds HTTP requests only";
  }
  ContractResource MakeUnknownLengthResource(int64_t) override {
    return {"", 0, what_ + "'s size is known when it opens"};
  }
  ContractResource MakeStallingResource(int64_t, int64_t) override {
    return {"", 0, what_ + "'s bytes are all on disk: a read never waits for more"};
  }

 private:
  const std::string what_;
};

template <typename Factory>
class ExecutorContractTest : public ::testing::Test {
 protected:
  // Crosses the 1 MiB boundaries of queues that work in MiB nodes, and is
  // not a multiple of any packet size used below.
  static constexpr int64_t kSize = (2 << 20) + 12345;

  void SetUp() override {
    factory_.SetUp();
    if (HasFatalFailure()) return;
    resource_ = factory_.MakeResource(kSize);
  }

  std::shared_ptr<downloader::IDownloadExecutor> OpenAt(int64_t offset, DLResultCode* result) {
    downloader::URI::Params params;
    if (offset > 0) params["range_start"] = std::to_string(offset);
    auto executor = factory_.NewExecutor();
    *result = executor->Open(downloader::URI::From(resource_.url, params));
    return executor;
  }

  std::shared_ptr<downloader::IDownloadExecutor> OpenAt(int64_t offset) {
    DLResultCode result;
    auto executor = OpenAt(offset, &result);
    EXPECT_EQ(result.code, kDLSuccess) << SubCodeTag(result.subCode) << " opening at " << offset;
    return executor;
  }

  // Reads `count` bytes at `offset` and checks each of them.
  void ExpectBytes(downloader::IDownloadExecutor* executor, int64_t offset, int64_t count, uint64_t packetSize) {
    std::vector<uint8_t> data;
    DLReadResult last = ReadBytes(executor, count, packetSize, &data);
    ASSERT_EQ(static_cast<int64_t>(data.size()), count) << "stopped with code " << last.code << " "
                                                        << SubCodeTag(last.subCode);
    ExpectSynthetic(resource_.seed, offset, data);
  }

  // Reads to the end and checks every byte from `offset` on.
  void ExpectRestOfResource(downloader::IDownloadExecutor* executor, int64_t offset, uint64_t packetSize) {
    std::vector<uint8_t> data;
    DLReadResult last = ReadToEnd(executor, packetSize, &data);
    EXPECT_EQ(last.code, kDLEndOfData) << SubCodeTag(last.subCode);
    ASSERT_EQ(static_cast<int64_t>(data.size()), kSize - offset);
    ExpectSynthetic(resource_.seed, offset, data);
  }

  Factory factory_;
  ContractResource resource_;
};

TYPED_TEST_SUITE_P(ExecutorContractTest);

TYPED_TEST_P(ExecutorContractTest, OpenAtStartReadsEveryByteInSmallPacketsThenEndOfData) {
  auto executor = this->OpenAt(0);
  EXPECT_EQ(executor->GetFileSize(), this->kSize);
  this->ExpectRestOfResource(executor.get(), 0, 4099);
  DLReadResult again = ReadOnce(executor.get(), 4099);
  EXPECT_EQ(again.code, kDLEndOfData);
  EXPECT_EQ(again.bytes, 0u);
  EXPECT_EQ(executor->Close().code, kDLSuccess);
}

TYPED_TEST_P(ExecutorContractTest, PacketsLargerThanTheRestGetOnlyTheRest) {
  auto executor = this->OpenAt(0);
  this->ExpectRestOfResource(executor.get(), 0, static_cast<uint64_t>(this->kSize) + 4096);
  executor->Close();
}

TYPED_TEST_P(ExecutorContractTest, OpenInTheMiddleStartsThere) {
  const int64_t middle = this->kSize / 2 + 3;
  auto executor = this->OpenAt(middle);
  this->ExpectRestOfResource(executor.get(), middle, 65536);
  executor->Close();
}

TYPED_TEST_P(ExecutorContractTest, OpenAtOrPastTheEndDeliversNoByte) {
  for (int64_t offset : {this->kSize, this->kSize + 1000}) {
    DLResultCode opened;
    auto executor = this->OpenAt(offset, &opened);
    if (opened.code == kDLSuccess) {
      DLReadResult first = ReadOnce(executor.get(), 4096);
      EXPECT_EQ(first.code, kDLEndOfData) << "at " << offset;
      EXPECT_EQ(first.bytes, 0u);
    } else {
      EXPECT_EQ(opened.code, kDLFailure) << "at " << offset;
      EXPECT_LT(opened.subCode, 0) << "a failure names its reason";
    }
    EXPECT_EQ(executor->Close().code, kDLSuccess);
  }
}

TYPED_TEST_P(ExecutorContractTest, SeekBackAndForth) {
  const int64_t size = this->kSize;
  auto executor = this->OpenAt(0);
  this->ExpectBytes(executor.get(), 0, 10000, 4096);
  ASSERT_EQ(executor->Seek(size - 5000).code, kDLSuccess);
  this->ExpectRestOfResource(executor.get(), size - 5000, 1 << 20);
  ASSERT_EQ(executor->Seek(100).code, kDLSuccess);
  this->ExpectBytes(executor.get(), 100, 3000, 1000);
  ASSERT_EQ(executor->Seek(size / 2).code, kDLSuccess);
  this->ExpectRestOfResource(executor.get(), size / 2, 65536);
  ASSERT_EQ(executor->Seek(0).code, kDLSuccess);
  this->ExpectRestOfResource(executor.get(), 0, 1 << 20);
  executor->Close();
}

TYPED_TEST_P(ExecutorContractTest, FailedOpenThenReadAndSeekFailAndCloseSucceeds) {
  auto executor = this->factory_.NewExecutor();
  DLResultCode opened = executor->Open(downloader::URI::From(this->factory_.MissingUrl(), {}));
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_LT(opened.subCode, 0) << "a failure names its reason";
  EXPECT_EQ(ReadOnce(executor.get(), 4096).code, kDLFailure);
  EXPECT_EQ(executor->Seek(0).code, kDLFailure);
  EXPECT_EQ(executor->Close().code, kDLSuccess);
  EXPECT_EQ(executor->Close().code, kDLSuccess);
}

TYPED_TEST_P(ExecutorContractTest, ReadAndSeekAfterCloseFail) {
  auto executor = this->OpenAt(0);
  this->ExpectBytes(executor.get(), 0, 1000, 1000);
  EXPECT_EQ(executor->Close().code, kDLSuccess);
  DLReadResult read = ReadOnce(executor.get(), 4096);
  EXPECT_EQ(read.code, kDLFailure);
  EXPECT_EQ(read.bytes, 0u);
  EXPECT_EQ(executor->Seek(0).code, kDLFailure);
  EXPECT_EQ(executor->Close().code, kDLSuccess);
}

TYPED_TEST_P(ExecutorContractTest, UnknownInfoKeyIsEmptyAndNameIsSet) {
  auto executor = this->OpenAt(0);
  EXPECT_EQ(executor->GetInfo("no_such_statistic"), "");
  EXPECT_EQ(executor->GetInfo(""), "");
  EXPECT_FALSE(executor->GetName().empty());
  executor->Close();
}

TYPED_TEST_P(ExecutorContractTest, RangeEndBoundsTheBytesDelivered) {
  const std::string reason = this->factory_.RangeEndSkipReason();
  if (!reason.empty()) GTEST_SKIP() << reason;
  const int64_t first = 1000;
  const int64_t last = this->kSize / 2 + 7;  // the last byte wanted, inclusive
  auto executor = this->factory_.NewExecutor();
  DLResultCode opened = executor->Open(downloader::URI::From(
      this->resource_.url, {{"range_start", std::to_string(first)}, {"range_end", std::to_string(last)}}));
  ASSERT_EQ(opened.code, kDLSuccess) << SubCodeTag(opened.subCode);
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  ASSERT_EQ(static_cast<int64_t>(data.size()), last - first + 1);
  ExpectSynthetic(this->resource_.seed, first, data);
  executor->Close();
}

TYPED_TEST_P(ExecutorContractTest, AResourceOfUnknownLengthReadsToItsEnd) {
  const ContractResource resource = this->factory_.MakeUnknownLengthResource(this->kSize);
  if (resource.url.empty()) GTEST_SKIP() << resource.skipReason;
  auto executor = this->factory_.NewExecutor();
  DLResultCode opened = executor->Open(downloader::URI::From(resource.url, {}));
  ASSERT_EQ(opened.code, kDLSuccess) << SubCodeTag(opened.subCode);
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  ASSERT_EQ(static_cast<int64_t>(data.size()), this->kSize);
  ExpectSynthetic(resource.seed, 0, data);
  executor->Close();
}

// An executor that cannot open asynchronously answers OpenAsync with (1, 0);
// what its WaitOpenResult answers then is its own.
TYPED_TEST_P(ExecutorContractTest, OpenAsyncThenWaitOpenResultOpensAsOpenDoes) {
  auto executor = this->factory_.NewExecutor();
  const DLResultCode started =
      executor->OpenAsync(downloader::URI::From(this->resource_.url, {{"range_start", "4096"}}));
  if (started.code == kDLFailure && started.subCode == 0) {
    executor->WaitOpenResult();
    EXPECT_EQ(executor->Close().code, kDLSuccess);
    return;
  }
  const DLResultCode waited = executor->WaitOpenResult();
  ASSERT_EQ(started.code, kDLSuccess) << SubCodeTag(started.subCode);
  ASSERT_EQ(waited.code, kDLSuccess) << SubCodeTag(waited.subCode);
  this->ExpectRestOfResource(executor.get(), 4096, 65536);
  executor->Close();
}

TYPED_TEST_P(ExecutorContractTest, CloseFromAnotherThreadEndsAWaitingRead) {
  const int64_t delivered = 100000;
  const ContractResource resource = this->factory_.MakeStallingResource(this->kSize, delivered);
  if (resource.url.empty()) GTEST_SKIP() << resource.skipReason;
  auto executor = this->factory_.NewExecutor();
  ASSERT_EQ(executor->Open(downloader::URI::From(resource.url, {})).code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadBytes(executor.get(), delivered, 65536, &data).code, kDLSuccess);
  ExpectSynthetic(resource.seed, 0, data);

  std::atomic<bool> reading{false};
  std::atomic<bool> readDone{false};
  DLReadResult waited;
  std::thread reader([&] {
    reading = true;
    waited = ReadOnce(executor.get(), 65536);
    readDone = true;
  });
  ASSERT_TRUE(WaitFor([&] { return reading.load(); }));
  EXPECT_EQ(executor->Close().code, kDLSuccess);
  // The factory's read timeout is far longer than this: only Close ends the read.
  const bool ended = WaitFor([&] { return readDone.load(); }, std::chrono::seconds(20));
  reader.join();
  EXPECT_TRUE(ended);
  EXPECT_EQ(waited.code, kDLFailure);
  EXPECT_EQ(waited.bytes, 0u);
}

REGISTER_TYPED_TEST_SUITE_P(ExecutorContractTest, OpenAtStartReadsEveryByteInSmallPacketsThenEndOfData,
                            PacketsLargerThanTheRestGetOnlyTheRest, OpenInTheMiddleStartsThere,
                            OpenAtOrPastTheEndDeliversNoByte, SeekBackAndForth,
                            FailedOpenThenReadAndSeekFailAndCloseSucceeds, ReadAndSeekAfterCloseFail,
                            UnknownInfoKeyIsEmptyAndNameIsSet, RangeEndBoundsTheBytesDelivered,
                            AResourceOfUnknownLengthReadsToItsEnd, OpenAsyncThenWaitOpenResultOpensAsOpenDoes,
                            CloseFromAnotherThreadEndsAWaitingRead);

}  // namespace dltest

#endif  // TESTS_FILTER_EXECUTORCONTRACT_H_
