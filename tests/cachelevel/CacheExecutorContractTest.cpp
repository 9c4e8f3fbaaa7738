// The segment and disk-cache executors under the executor contract, over
// resources stored in a fresh cache root.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <downloader/Storage/CacheWriter.h>

#include "ExecutorContract.h"
#include "Filter/CacheDownloadFilter.h"
#include "Filter/SegmentDownloadFilter.h"
#include "Storage/SegmentFileWriter.h"
#include "SyntheticContent.h"
#include "support/MapConfig.h"
#include "support/TempDir.h"

namespace dltest {
namespace {

using downloader::URI;

template <typename Filter>
class StoredResourceFactory : public FileExecutorFactory {
 public:
  StoredResourceFactory() : FileExecutorFactory("a stored resource"), config_(std::make_shared<MapConfig>()) {}
  ~StoredResourceFactory() override { downloader::storage::CacheWriter::SetCacheRoot(""); }

  void SetUp() override {
    downloader::storage::CacheWriter::SetCacheRoot(root_.path());
    config_->Set("enable_cache_filter_range_start", "true");
    config_->Set("enable_preload", "true");
    filter_.SetConfigure(config_);
  }
  std::shared_ptr<downloader::IDownloadExecutor> NewExecutor() override {
    return filter_.AcquireExecutor(URI::From("http://cdn.example/contract/any.mp4", {}));
  }
  ContractResource MakeResource(int64_t size) override {
    ContractResource resource;
    resource.url = "http://cdn.example/contract/resource-" + std::to_string(size) + ".mp4";
    resource.seed = dlorigin::SyntheticSeed(resource.url);
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    dlorigin::FillSynthetic(resource.seed, 0, bytes.data(), bytes.size());
    auto writer = downloader::storage::CacheWriter::CreateSegmentWriter(config_, URI::From(resource.url, {}),
                                                                        bytes.size());
    EXPECT_TRUE(writer);
    if (writer) {
      writer->store(0, bytes.data(), bytes.size());
      writer->complete();
    }
    return resource;
  }
  std::string MissingUrl() override { return "http://cdn.example/contract/missing.mp4"; }

 private:
  TempDir root_;
  std::shared_ptr<MapConfig> config_;
  Filter filter_;
};

using SegmentExecutorFactory = StoredResourceFactory<downloader::SegmentDownloadFilter>;
using CacheExecutorFactory = StoredResourceFactory<downloader::CacheDownloadFilter>;

INSTANTIATE_TYPED_TEST_SUITE_P(SegmentExecutor, ExecutorContractTest, SegmentExecutorFactory);
INSTANTIATE_TYPED_TEST_SUITE_P(CacheExecutor, ExecutorContractTest, CacheExecutorFactory);

}  // namespace
}  // namespace dltest
