// A scriptable delivery channel for stream tests: a filter that accepts or
// refuses, and executors that serve a byte string from the offset they were
// opened at, then fail, stall or end as the script says.
#ifndef TESTS_PIPELINE_FAKECHANNEL_H_
#define TESTS_PIPELINE_FAKECHANNEL_H_

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

namespace dltest {

constexpr int64_t kFakeReadFailure = downloader::FourCharSubCode('F', 'R', 'E', 'D');
constexpr int64_t kFakeOpenFailure = downloader::FourCharSubCode('F', 'O', 'P', 'N');
constexpr int64_t kFakeRefusal = downloader::FourCharSubCode('F', 'R', 'E', 'F');

struct FakeScript {
  // ShouldRespond's answer.
  DLResultCode respond{0, 0};
  // Open's answer.
  DLResultCode open{0, 0};
  // The whole resource.
  std::string content;
  // Reads at or past this offset fail (-1: never).
  int64_t failAt = -1;
  // Reads at or past this offset deliver nothing: each waits `stallWaitMs`
  // for a release that does not come, then answers (0, 0).
  int64_t stallAt = -1;
  int stallWaitMs = 10;
  // Bytes per read at most.
  uint64_t maxRead = 4096;
  // Open blocks until the executor is closed, then fails.
  bool openBlocks = false;
  // What the executor answers for "error_message" ("error_kind" is then "fake").
  std::string reason;
};

class FakeFilter;

class FakeExecutor : public downloader::IDownloadExecutor {
 public:
  FakeExecutor(FakeFilter* owner, FakeScript script);
  ~FakeExecutor() override;

  DLResultCode Open(const std::shared_ptr<downloader::URI>& uri) override;
  DLResultCode OpenAsync(const std::shared_ptr<downloader::URI>& uri) override;
  DLResultCode WaitOpenResult() override;
  DLReadResult Read(downloader::Packet& packet) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  bool IsReady() override { return true; }
  void SetHint(const std::string& /*hint*/) override {}
  std::string GetInfo(const std::string& key) override;
  std::string GetName() override { return "FAKE"; }

 private:
  FakeFilter* const owner_;
  const FakeScript script_;
  std::mutex mutex_;
  std::condition_variable released_;
  int64_t offset_ = 0;
  bool opened_ = false;
  bool closed_ = false;
};

class FakeFilter : public downloader::IDownloadFilter {
 public:
  explicit FakeFilter(FakeScript script) : script_(std::move(script)) {}

  DLResultCode ShouldRespond(const std::shared_ptr<downloader::URI>& uri,
                             const std::shared_ptr<downloader::IStream>& context) override;
  std::shared_ptr<downloader::IDownloadExecutor> AcquireExecutor(const std::shared_ptr<downloader::URI>& uri) override;

  void SetScript(FakeScript script);
  int asked();
  // The offsets the executors of this filter were opened at.
  std::vector<int64_t> openOffsets();
  int closes();
  // URIs the filter was asked about.
  std::vector<std::shared_ptr<downloader::URI>> requests();

 private:
  friend class FakeExecutor;
  void RecordOpen(int64_t offset);
  void RecordClose();

  std::mutex mutex_;
  FakeScript script_;
  int asked_ = 0;
  int closes_ = 0;
  std::vector<int64_t> openOffsets_;
  std::vector<std::shared_ptr<downloader::URI>> requests_;
};

// `size` deterministic bytes that differ from offset to offset.
std::string PatternBytes(size_t size, uint32_t seed = 1);

// Equal byte strings; otherwise the sizes and the first differing offset
// (never the bytes themselves, which may be megabytes).
::testing::AssertionResult SameBytes(const std::string& actual, const std::string& expected);

}  // namespace dltest

#endif  // TESTS_PIPELINE_FAKECHANNEL_H_
