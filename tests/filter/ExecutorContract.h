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
#ifndef TESTS_FILTER_EXECUTORCONTRACT_H_
#define TESTS_FILTER_EXECUTORCONTRACT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Base/Packet.h>
#include <downloader/Base/URI.h>
#include <downloader/Filter/IDownloadExecutor.h>

#include "ExecutorReading.h"

namespace dltest {

struct ContractResource {
  std::string url;
  uint64_t seed = 0;
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

REGISTER_TYPED_TEST_SUITE_P(ExecutorContractTest, OpenAtStartReadsEveryByteInSmallPacketsThenEndOfData,
                            PacketsLargerThanTheRestGetOnlyTheRest, OpenInTheMiddleStartsThere,
                            OpenAtOrPastTheEndDeliversNoByte, SeekBackAndForth,
                            FailedOpenThenReadAndSeekFailAndCloseSucceeds, ReadAndSeekAfterCloseFail,
                            UnknownInfoKeyIsEmptyAndNameIsSet);

}  // namespace dltest

#endif  // TESTS_FILTER_EXECUTORCONTRACT_H_
