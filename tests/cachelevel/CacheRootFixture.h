// A fresh cache root per test, and helpers that store resources in it.
#ifndef TESTS_CACHELEVEL_CACHEROOTFIXTURE_H_
#define TESTS_CACHELEVEL_CACHEROOTFIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <downloader/Storage/CacheWriter.h>

#include "Storage/SegmentFileWriter.h"
#include "support/MapConfig.h"
#include "support/TempDir.h"
#include "support/WaitFor.h"

namespace dltest {

class CacheRootFixture : public ::testing::Test {
 protected:
  CacheRootFixture() : config_(std::make_shared<MapConfig>()) {
    downloader::storage::CacheWriter::SetCacheRoot(root_.path());
  }
  ~CacheRootFixture() override { downloader::storage::CacheWriter::SetCacheRoot(""); }

  // Stores bytes [0, upTo) of `content` for `uri`, as a stream's writer would.
  void Store(const std::shared_ptr<downloader::URI>& uri, const std::string& content, size_t upTo) {
    auto writer = downloader::storage::CacheWriter::CreateSegmentWriter(config_, uri, content.size());
    ASSERT_TRUE(writer);
    writer->store(0, reinterpret_cast<const uint8_t*>(content.data()), upTo);
    writer->complete();
  }

  // Bytes stored from offset 0 on, as the disk-cache level sees them.
  int64_t StoredSize(const std::shared_ptr<downloader::URI>& uri) {
    auto store = downloader::storage::CacheWriter::AcquireDataStore(config_, uri);
    return store ? store->GetDownloadedSize() : 0;
  }

  TempDir root_;
  std::shared_ptr<MapConfig> config_;
};

}  // namespace dltest

#endif  // TESTS_CACHELEVEL_CACHEROOTFIXTURE_H_
