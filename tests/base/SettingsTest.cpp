#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Base/Settings.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" `");
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(" `");
  return text.substr(first, last - first + 1);
}

std::string RowText(const SettingRow& row) {
  return "| `" + row.group + "` | `" + row.key + "` | " + row.type + " | `" + row.defaultText + "` | " + row.meaning +
         " |";
}

// The rows of docs/settings.md's tables: lines that start with "| `".
std::vector<SettingRow> DocumentedRows() {
  std::ifstream file(std::string(DL_SOURCE_DIR) + "/docs/settings.md");
  std::vector<SettingRow> rows;
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind("| `", 0) != 0) continue;
    std::vector<std::string> cells;
    std::stringstream cellText(line.substr(1));
    std::string cell;
    while (std::getline(cellText, cell, '|')) cells.push_back(Trim(cell));
    if (cells.size() < 5) {
      ADD_FAILURE() << "a row of docs/settings.md has fewer than five cells: " << line;
      continue;
    }
    rows.push_back({cells[0], cells[1], cells[2], cells[3], cells[4]});
  }
  return rows;
}

TEST(SettingsTest, DocumentationListsEveryRowOfTheTable) {
  std::map<std::pair<std::string, std::string>, SettingRow> documented;
  for (const SettingRow& row : DocumentedRows()) {
    EXPECT_TRUE(documented.emplace(std::make_pair(row.group, row.key), row).second)
        << "docs/settings.md names " << row.group << " " << row.key << " twice";
  }
  std::set<std::pair<std::string, std::string>> listed;
  for (const SettingRow& row : SettingRows()) {
    const auto name = std::make_pair(row.group, row.key);
    EXPECT_TRUE(listed.insert(name).second) << "the table names " << row.group << " " << row.key << " twice";
    auto found = documented.find(name);
    if (found == documented.end()) {
      ADD_FAILURE() << "docs/settings.md lacks the row\n" << RowText(row);
      continue;
    }
    EXPECT_EQ(RowText(found->second), RowText(row)) << "docs/settings.md disagrees with the table";
    documented.erase(found);
  }
  for (const auto& stale : documented) {
    ADD_FAILURE() << "docs/settings.md lists a row the table does not have: " << RowText(stale.second);
  }
}

// Records the default each GetValue is handed, and answers it.
class RecordingConfig : public dltest::MapConfig {
 public:
  std::string GetValue(const std::string& group, const std::string& key, const std::string& fallback) override {
    {
      std::lock_guard<std::mutex> lock(recordMutex_);
      defaults_[group + "/" + key] = fallback;
    }
    return MapConfig::GetValue(group, key, fallback);
  }
  std::map<std::string, std::string> Defaults() {
    std::lock_guard<std::mutex> lock(recordMutex_);
    return defaults_;
  }

 private:
  std::mutex recordMutex_;
  std::map<std::string, std::string> defaults_;
};

TEST(SettingsTest, ReadingHandsEachKeyItsDefaultAndConvertsStoredText) {
  auto host = std::make_shared<RecordingConfig>();
  host->Set("read_timeout", "12abc");
  host->Set("download_level", "99999999999");
  host->Set("enable_segment_writer", "TRUE");
  host->Set("enable_preload", "1");
  host->Set("http_downloader_kit", "proxy", "http://proxy:8080");
  const DownloaderSettings settings = DownloaderSettings::Read(host);
  EXPECT_EQ(settings.readTimeoutMs, 12);
  EXPECT_EQ(settings.downloadLevelMask, INT32_MAX);
  EXPECT_FALSE(settings.enableSegmentWriter);
  EXPECT_TRUE(settings.enablePreload);
  EXPECT_EQ(settings.proxy, "http://proxy:8080");

  const std::map<std::string, std::string> handed = host->Defaults();
  size_t settingRows = 0;
  for (const SettingRow& row : SettingRows()) {
    if (row.group == "request" || row.key.back() == '*') continue;
    ++settingRows;
    auto found = handed.find(row.group + "/" + row.key);
    ASSERT_NE(found, handed.end()) << row.key << " is not read";
    const std::string expected = row.defaultText == "(empty)" ? std::string() : row.defaultText;
    EXPECT_EQ(found->second, expected) << row.key;
  }
  EXPECT_EQ(handed.size(), settingRows);

  EXPECT_EQ(DownloaderSettings::Read(nullptr).readTimeoutMs, DownloaderSettings().readTimeoutMs);
}

TEST(SettingsTest, AnOpenScopeAnswersForItsConfigurationOnItsThreadOnly) {
  auto host = std::make_shared<dltest::MapConfig>();
  auto other = std::make_shared<dltest::MapConfig>();
  host->Set("read_timeout", "100");
  other->Set("read_timeout", "300");
  const DownloaderSettings atOpen = DownloaderSettings::Read(host);
  {
    DownloaderSettings::OpenScope scope(host, atOpen);
    host->Set("read_timeout", "200");
    EXPECT_EQ(DownloaderSettings::Read(host).readTimeoutMs, 100);
    EXPECT_EQ(DownloaderSettings::Read(other).readTimeoutMs, 300);
    int64_t onAnotherThread = 0;
    std::thread([&] { onAnotherThread = DownloaderSettings::Read(host).readTimeoutMs; }).join();
    EXPECT_EQ(onAnotherThread, 200);
    const DownloaderSettings nestedAtOpen = DownloaderSettings::Read(other);
    {
      DownloaderSettings::OpenScope nested(other, nestedAtOpen);
      other->Set("read_timeout", "400");
      EXPECT_EQ(DownloaderSettings::Read(other).readTimeoutMs, 300);
      EXPECT_EQ(DownloaderSettings::Read(host).readTimeoutMs, 200);
    }
    EXPECT_EQ(DownloaderSettings::Read(host).readTimeoutMs, 100);
  }
  EXPECT_EQ(DownloaderSettings::Read(host).readTimeoutMs, 200);
}

TEST(SettingsTest, RequestParamsTellAbsentFromPresentAndClampAsTheReaders) {
  const RequestParams absent = RequestParams::Read({});
  EXPECT_FALSE(absent.downloadLevel.has_value());
  EXPECT_FALSE(absent.channelType.has_value());
  EXPECT_EQ(absent.playerId, -1);

  const RequestParams given = RequestParams::Read(
      {{"download_level", "abc"}, {"channelType", ""}, {"player_id", "-99999999999"}, {"is_live", ""},
       {"range_start", "99999999999"}, {"preload", "1"}});
  EXPECT_EQ(given.downloadLevel, 0);
  EXPECT_EQ(given.channelType, std::string());
  EXPECT_EQ(given.playerId, INT32_MIN);
  EXPECT_FALSE(given.isLive);
  EXPECT_EQ(given.rangeStart, 99999999999LL);
  EXPECT_TRUE(given.preload);
  EXPECT_EQ(ClampToInt32(99999999999LL), INT32_MAX);
}

TEST(SettingsTest, PrefixSettingCompletesItsKey) {
  auto host = std::make_shared<dltest::MapConfig>();
  host->Set("http_downloader_kit", "cellular_host_gear_2", "cell.example");
  EXPECT_EQ(ReadPrefixedSetting(host, kCellularHostGearSetting, "2"), "cell.example");
  EXPECT_EQ(ReadPrefixedSetting(host, kCellularHostGearSetting, "3"), "");
}

}  // namespace
}  // namespace downloader
