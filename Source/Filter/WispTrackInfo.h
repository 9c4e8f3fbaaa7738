// The track a request belongs to, as the host describes it in the request
// parameter "track_info": a JSON object whose members are strings, numbers or
// booleans, for instance
//
//   {"type":"video","id":1,"bit_rate":1500000,"codec":"avc1.64001f,mp4a.40.2"}
//
// The record keeps every member, by name, as text: strings as they are,
// numbers and booleans in their JSON spelling. Member names are the host's;
// the executor interprets none of them.
//
// Edge cases: text that is not JSON, a JSON value that is not an object, a
// member that is an object, an array or null, all make Parse fail with an
// empty record and the reason (never an exception). "{}" is a valid, empty
// track.
//
// Stateless; any thread.
#ifndef DOWNLOADER_FILTER_WISPTRACKINFO_H_
#define DOWNLOADER_FILTER_WISPTRACKINFO_H_

#include <map>
#include <string>

namespace downloader {

class WispTrackInfo {
 public:
  using Record = std::map<std::string, std::string>;

  // Fills `record` from `text`; on failure clears it, sets `reason` and
  // returns false.
  static bool Parse(const std::string& text, Record* record, std::string* reason);
  // The record as a JSON object with string members, in name order.
  static std::string ToText(const Record& record);
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPTRACKINFO_H_
