// Base fixture of the road suites: a tunnel wired as a host wires it, a cache
// root of the test's own, the run's dlorigin, and helpers that read whole
// resources through streams and check them against the origin's synthetic
// content.
#ifndef TESTS_ROAD_ROADFIXTURE_H_
#define TESTS_ROAD_ROADFIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <downloader/Pipe/KestrelTunnel.h>

#include "support/MapConfig.h"
#include "support/RecordingReporter.h"
#include "support/TempDir.h"

namespace dltest {

class RoadFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A synthetic resource of `size` bytes at /syn/<name>, with extra query
  // text (faults, a tag).
  std::string SyntheticUrl(const std::string& name, int64_t size, const std::string& query = "") const;
  // The bytes of that resource from `offset` on.
  static std::string SyntheticBytes(const std::string& name, int64_t size, int64_t offset = 0);
  // A name no other run has used: the origin outlives test runs.
  static std::string UniqueName(const std::string& prefix);
  // What the origin counted for `tag` (-1 when the query failed).
  int64_t RequestsFor(const std::string& tag);

  // Reads to the end of the data or a failure; the last outcome in *last.
  static std::string ReadToEnd(downloader::IStream& stream, DLReadResult* last = nullptr, uint64_t packet = 65536);
  // Reads `count` bytes (fewer at the end or on a failure).
  static std::string ReadCount(downloader::IStream& stream, size_t count, uint64_t packet = 65536);

  // Bytes stored from offset 0 on for `url`.
  int64_t StoredSize(const std::string& url);
  // Statistics events committed through the tunnel, as "<event>@<level>".
  std::vector<std::string> Events();

  std::string origin_;
  TempDir root_;
  std::shared_ptr<MapConfig> config_;
  std::shared_ptr<RecordingReporter> reporter_;
  std::shared_ptr<downloader::KestrelTunnel> tunnel_;

 private:
  std::mutex mutex_;
  std::vector<std::string> events_;
};

}  // namespace dltest

#endif  // TESTS_ROAD_ROADFIXTURE_H_
