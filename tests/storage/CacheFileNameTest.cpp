// A resource's ID may come from a host's identifier; whatever it holds, the
// cache file it names stays a plain file directly in the cache folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <downloader/Base/URIBuilder.h>
#include <downloader/Storage/CacheWriter.h>

#include "Storage/CacheFileName.h"
#include "Storage/SegmentFileWriter.h"
#include "support/MapConfig.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

const std::vector<std::string>& HostileIds() {
  static const std::vector<std::string> ids = {
      "../escape",
      "../../../../../../tmp/escape",
      "/etc/passwd",
      "C:\\Windows\\escape",
      "..\\escape",
      std::string("abc\0../x", 8),
      std::string(100000, 'a'),
      "",
      "12345678901234567890123",
      "cache/../../x",
  };
  return ids;
}

class FixedIdIdentifier : public URIIdentifier {
 public:
  explicit FixedIdIdentifier(std::string id) : id_(std::move(id)) {}
  std::string ID(const URI*) override { return id_; }
  std::string GroupID(const URI*) override { return std::string(); }

 private:
  std::string id_;
};

TEST(CacheFileNameTest, DefaultIdsStayAndAnythingElseBecomesAHash) {
  EXPECT_EQ(CacheFileName::FromId("18446744073709551615"), "18446744073709551615");
  EXPECT_EQ(CacheFileName::FromId("42"), "42");
  const std::regex hashed("h[0-9a-f]{32}");
  std::set<std::string> names;
  for (const std::string& id : HostileIds()) {
    std::string name = CacheFileName::FromId(id);
    EXPECT_TRUE(std::regex_match(name, hashed)) << name;
    names.insert(name);
  }
  EXPECT_EQ(names.size(), HostileIds().size()) << "distinct IDs keep distinct files";
}

TEST(CacheFileNameTest, HostileIdsWriteOnlyInsideTheCacheFolder) {
  dltest::TempDir outer;
  const std::string root = outer.Join("root");
  std::filesystem::create_directories(root);
  CacheWriter::SetCacheRoot(root);
  auto config = std::make_shared<dltest::MapConfig>();
  const std::vector<uint8_t> bytes(1000, 0x5a);
  std::string cacheFolder;
  for (const std::string& id : HostileIds()) {
    FixedIdIdentifier identifier(id);
    auto uri = URIBuilder::New().SetUrl("http://cdn.example/a.ts").SetURIIdentifier(&identifier).Build();
    const std::string path = CacheWriter::CacheFilePath(*uri);
    const std::string folder = std::filesystem::path(path).parent_path().lexically_normal().string();
    if (cacheFolder.empty()) cacheFolder = folder;
    EXPECT_EQ(folder, cacheFolder) << "every file sits directly in the one cache folder";
    EXPECT_EQ(path.rfind(root, 0), 0u) << path;

    auto writer = CacheWriter::CreateSegmentWriter(config, uri, bytes.size());
    ASSERT_TRUE(writer);
    CacheWriter::StoreSegmentBytes(writer, 0, bytes.data(), bytes.size());
    CacheWriter::CompleteSegmentWriter(writer);
  }
  ASSERT_TRUE(CacheWriter::WaitForPendingWrites(30000));
  CacheWriter::SetCacheRoot("");

  std::vector<std::string> outside;
  for (const auto& entry : std::filesystem::directory_iterator(outer.path())) {
    if (entry.path().filename() != "root") outside.push_back(entry.path().string());
  }
  EXPECT_TRUE(outside.empty()) << outside.front();
  size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    EXPECT_EQ(entry.path().parent_path().lexically_normal().string(), cacheFolder) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, HostileIds().size());
}

}  // namespace
}  // namespace storage
}  // namespace downloader
