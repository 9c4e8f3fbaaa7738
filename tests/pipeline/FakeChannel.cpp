#include "FakeChannel.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include <downloader/Pipe/ConfigReader.h>

namespace dltest {

FakeExecutor::FakeExecutor(FakeFilter* owner, FakeScript script) : owner_(owner), script_(std::move(script)) {}

FakeExecutor::~FakeExecutor() = default;

DLResultCode FakeExecutor::Open(const std::shared_ptr<downloader::URI>& uri) {
  int64_t start = downloader::ReadParamInt64(uri->GetParams(), "range_start", 0);
  owner_->RecordOpen(start);
  std::unique_lock<std::mutex> lock(mutex_);
  if (script_.openBlocks) {
    released_.wait(lock, [this] { return closed_; });
    return DLResultCode(1, kFakeOpenFailure);
  }
  offset_ = start;
  opened_ = script_.open.IsSuccess();
  return script_.open;
}

DLResultCode FakeExecutor::OpenAsync(const std::shared_ptr<downloader::URI>& /*uri*/) { return DLResultCode(1, 0); }

DLResultCode FakeExecutor::WaitOpenResult() { return DLResultCode(1, 0); }

DLReadResult FakeExecutor::Read(downloader::Packet& packet) {
  DLReadResult result;
  std::unique_lock<std::mutex> lock(mutex_);
  if (!opened_ || closed_) {
    result.Set(1, 0, kFakeReadFailure);
    return result;
  }
  if (script_.failAt >= 0 && offset_ >= script_.failAt) {
    result.Set(1, 0, kFakeReadFailure);
    return result;
  }
  if (script_.stallAt >= 0 && offset_ >= script_.stallAt) {
    released_.wait_for(lock, std::chrono::milliseconds(script_.stallWaitMs), [this] { return closed_; });
    result.Set(0, 0, 0);
    return result;
  }
  int64_t size = static_cast<int64_t>(script_.content.size());
  if (offset_ >= size) {
    result.Set(5, 0, 0);
    return result;
  }
  int64_t limit = size;
  if (script_.failAt >= 0) limit = std::min(limit, script_.failAt);
  if (script_.stallAt >= 0) limit = std::min(limit, script_.stallAt);
  uint64_t count = std::min<uint64_t>({packet.GetSize(), script_.maxRead, static_cast<uint64_t>(limit - offset_)});
  std::memcpy(packet.GetBuffer(), script_.content.data() + offset_, count);
  offset_ += static_cast<int64_t>(count);
  result.Set(0, count, 0);
  return result;
}

DLResultCode FakeExecutor::Seek(int64_t offset) {
  std::lock_guard<std::mutex> lock(mutex_);
  offset_ = offset;
  return DLResultCode(0, 0);
}

int64_t FakeExecutor::GetFileSize() { return static_cast<int64_t>(script_.content.size()); }

DLResultCode FakeExecutor::Close() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) return DLResultCode(0, 0);
    closed_ = true;
  }
  released_.notify_all();
  owner_->RecordClose();
  return DLResultCode(0, 0);
}

std::string FakeExecutor::GetInfo(const std::string& key) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (key == "downloaded_size") return std::to_string(offset_);
  if (key == "error_message") return script_.reason;
  if (key == "error_kind") return script_.reason.empty() ? std::string() : "fake";
  return std::string();
}

DLResultCode FakeFilter::ShouldRespond(const std::shared_ptr<downloader::URI>& uri,
                                       const std::shared_ptr<downloader::IStream>& /*context*/) {
  std::lock_guard<std::mutex> lock(mutex_);
  ++asked_;
  requests_.push_back(uri);
  return script_.respond;
}

std::shared_ptr<downloader::IDownloadExecutor> FakeFilter::AcquireExecutor(
    const std::shared_ptr<downloader::URI>& /*uri*/) {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::make_shared<FakeExecutor>(this, script_);
}

void FakeFilter::SetScript(FakeScript script) {
  std::lock_guard<std::mutex> lock(mutex_);
  script_ = std::move(script);
}

int FakeFilter::asked() {
  std::lock_guard<std::mutex> lock(mutex_);
  return asked_;
}

std::vector<int64_t> FakeFilter::openOffsets() {
  std::lock_guard<std::mutex> lock(mutex_);
  return openOffsets_;
}

int FakeFilter::closes() {
  std::lock_guard<std::mutex> lock(mutex_);
  return closes_;
}

std::vector<std::shared_ptr<downloader::URI>> FakeFilter::requests() {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void FakeFilter::RecordOpen(int64_t offset) {
  std::lock_guard<std::mutex> lock(mutex_);
  openOffsets_.push_back(offset);
}

void FakeFilter::RecordClose() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++closes_;
}

::testing::AssertionResult SameBytes(const std::string& actual, const std::string& expected) {
  if (actual == expected) return ::testing::AssertionSuccess();
  size_t common = std::min(actual.size(), expected.size());
  size_t first = 0;
  while (first < common && actual[first] == expected[first]) ++first;
  return ::testing::AssertionFailure() << "got " << actual.size() << " bytes, expected " << expected.size()
                                       << ", first difference at offset " << first;
}

std::string PatternBytes(size_t size, uint32_t seed) {
  std::string bytes(size, '\0');
  uint32_t state = seed * 2654435761u + 1;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1664525u + 1013904223u;
    bytes[i] = static_cast<char>(state >> 24);
  }
  return bytes;
}

}  // namespace dltest
