// The request records of the last three HTTP requests of each player, kept
// for the process's life so that a player's report shows what happened just
// before (a stall usually follows slow requests, not one of them).
//
// Record text: a JSON array, oldest first, of objects whose members are the
// record's keys and text values, in key order:
//   [{"cdnIp":"10.0.0.1","speed":"1200000",...},{...}]
//
// Thread-safe; any thread.
#ifndef DOWNLOADER_FILTER_WISPLASTREPORTS_H_
#define DOWNLOADER_FILTER_WISPLASTREPORTS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace downloader {

class WispLastReports {
 public:
  using Record = std::map<std::string, std::string>;

  static constexpr size_t kKeptPerPlayer = 3;

  WispLastReports() = delete;

  // Adds `record` for `playerId`, dropping the oldest beyond three, and
  // returns the player's records now kept, oldest first.
  static std::vector<Record> Keep(int32_t playerId, const Record& record);
  static std::string ToText(const std::vector<Record>& records);
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPLASTREPORTS_H_
