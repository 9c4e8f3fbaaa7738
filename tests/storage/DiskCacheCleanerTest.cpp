#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <downloader/Storage/CacheWriter.h>

#include "Platform/FileSystem.h"
#include "Storage/DiskCacheCleaner.h"
#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "support/MapConfig.h"
#include "support/TempDir.h"
#include "support/WaitFor.h"

namespace downloader {
namespace storage {
namespace {

constexpr uint64_t kFileSize = 1000;

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

// Writes `count` files of kFileSize bytes into `folder`, file i modified i
// hours after file 0; answers their paths, oldest first.
std::vector<std::string> WriteAgedFiles(const std::string& folder, int count) {
  platform::FileSystem::Default()->CreateDirs(folder);
  std::vector<std::string> paths;
  const auto oldest = std::filesystem::file_time_type::clock::now() - std::chrono::hours(count + 1);
  for (int i = 0; i < count; ++i) {
    const std::string path = folder + "/cache.file" + std::to_string(i);
    std::ofstream(path, std::ios::binary) << std::string(kFileSize, 'x');
    std::filesystem::last_write_time(path, oldest + std::chrono::hours(i));
    paths.push_back(path);
  }
  return paths;
}

TEST(DiskCacheCleanerTest, RemovesTheLeastRecentlyModifiedFilesButNeverAHeldOne) {
  dltest::TempDir dir;
  const std::vector<std::string> files = WriteAgedFiles(dir.Join("cache"), 4);
  DiskAdapterProvider provider;
  provider.init();
  std::shared_ptr<DiskAdapter> reader = provider.acquire_adapter(files[0], 0, 1);

  EXPECT_EQ(DiskCacheCleaner::CleanFolder(dir.Join("cache"), 0, provider, platform::FileSystem::Default()), 0u)
      << "capacity 0 is no limit";
  EXPECT_EQ(DiskCacheCleaner::CleanFolder(dir.Join("cache"), 2500, provider, platform::FileSystem::Default()),
            2 * kFileSize);
  EXPECT_TRUE(Exists(files[0])) << "held by a reader";
  EXPECT_FALSE(Exists(files[1]));
  EXPECT_FALSE(Exists(files[2]));
  EXPECT_TRUE(Exists(files[3]));

  reader.reset();
  EXPECT_EQ(DiskCacheCleaner::CleanFolder(dir.Join("cache"), 1500, provider, platform::FileSystem::Default()),
            kFileSize);
  EXPECT_FALSE(Exists(files[0])) << "let go, and the oldest";
  EXPECT_TRUE(Exists(files[3]));
  EXPECT_EQ(DiskCacheCleaner::CleanFolder(dir.Join("missing"), 1, provider, platform::FileSystem::Default()), 0u);
}

TEST(DiskCacheCleanerTest, ScheduledCleaningKeepsTheCacheFolderUnderItsCapacity) {
  dltest::TempDir root;
  CacheWriter::SetCacheRoot(root.path());
  const std::string folder = DiskCacheCleaner::CacheFolder();
  ASSERT_FALSE(folder.empty());
  DiskAdapterProvider::GetInstance().init();
  auto config = std::make_shared<dltest::MapConfig>();
  config->Set("disk_cache_capacity", std::to_string(3 * kFileSize));
  config->Set("clean_duration", "20");
  DiskCacheCleaner::GetInstance().Schedule(config);  // off: "enable_clean_disk" is not set
  config->Set("enable_clean_disk", "true");
  DiskCacheCleaner::GetInstance().Schedule(config);

  // Files arriving after the first pass are cleaned by a later one.
  const std::vector<std::string> files = WriteAgedFiles(folder, 5);
  EXPECT_TRUE(dltest::WaitFor([&] { return !Exists(files[0]) && !Exists(files[1]); }));
  EXPECT_TRUE(Exists(files[2]));
  EXPECT_TRUE(Exists(files[4]));
  CacheWriter::SetCacheRoot("");
}

}  // namespace
}  // namespace storage
}  // namespace downloader
