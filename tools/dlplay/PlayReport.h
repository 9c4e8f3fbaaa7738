// What dlplay tells about a play: one record per request (printed as one JSON
// object per line with --report json) and a summary per play.
//
// The JSON members, stable across versions (new members may be added):
//   url        the request's URL
//   levels     the download levels tried, in order: each whose executor was
//              opened, served or not (0 cache, 1 PCDN, 2 local file, 4 HTTP)
//   level      the level that served the request last
//   executor   that level's executor name ("CACHE1", "WISP", "LOCAL_FILE", ...)
//   code       the request's outcome: 0 read to the end, 1 failed
//   sub_code   the failure's sub-code (0 on success)
//   sub_tag    the sub-code's four characters ("H404"), "" when none
//   bytes      bytes read
//   sha256     hex SHA-256 of the bytes read
//   ms         milliseconds from open to close
//   cache_hit  true when the disk cache served the request
//   error_kind     the failure's class as the library names it ("dns failure",
//                  "tls failure", "http status", "timeout", ...), "" on success
//   error_message  why it failed, in words ("HTTP 401"), "" on success
#ifndef TOOLS_DLPLAY_PLAYREPORT_H_
#define TOOLS_DLPLAY_PLAYREPORT_H_

#include <cstdint>
#include <fstream>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Options.h"

namespace dlplay {

struct RequestReport {
  std::string url;
  std::vector<int> levels;
  int level = -1;
  std::string executor;
  int code = 0;
  int64_t subCode = 0;
  uint64_t bytes = 0;
  std::string sha256;
  int64_t ms = 0;
  bool cacheHit = false;
  int downgrades = 0;
  std::string errorKind;
  std::string errorMessage;

  std::string ToJson() const;
  // "seg3.ts: H4XX: could not resolve host 'x'": the line a failure prints.
  std::string FailureLine() const;
};

// "0>1>4" as the stream's level tracker writes it.
std::vector<int> ParseLevelTrail(const std::string& trail);

class PlaySummary {
 public:
  void Add(const RequestReport& report);
  // The play's wall time: with streams opened ahead, requests overlap and
  // their own times do not add up to it.
  void SetMilliseconds(int64_t milliseconds) { milliseconds_ = milliseconds; }

  uint64_t bytes() const { return bytes_; }
  int requests() const { return requests_; }
  int failures() const { return failures_; }
  int cacheHits() const { return cacheHits_; }
  int downgrades() const { return downgrades_; }
  int64_t milliseconds() const { return milliseconds_; }
  const std::map<int, uint64_t>& bytesPerLevel() const { return bytesPerLevel_; }
  double MeanSpeedMiBps() const;
  // 0 with no failure, else the exit status of the first failed request.
  int ExitStatus() const;

  // Rows of "name value" lines, for one play or two side by side.
  std::vector<std::pair<std::string, std::string>> Rows() const;
  static std::string Format(const std::string& title, const PlaySummary& summary);
  static std::string FormatSideBySide(const std::string& leftTitle, const PlaySummary& left,
                                      const std::string& rightTitle, const PlaySummary& right);

 private:
  uint64_t bytes_ = 0;
  int requests_ = 0;
  int failures_ = 0;
  int cacheHits_ = 0;
  int downgrades_ = 0;
  int64_t milliseconds_ = 0;
  std::map<int, uint64_t> bytesPerLevel_;
  int firstFailureStatus_ = 0;
};

// Where the JSON report goes: the --report-file file, else stdout with
// --report json (stderr when the media takes stdout), else nowhere (*out null).
// False, with the reason, when the file cannot be written.
bool OpenJsonReport(const Options& options, std::ofstream* file, std::ostream** out, std::string* error);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_PLAYREPORT_H_
