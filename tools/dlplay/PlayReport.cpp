#include "PlayReport.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include <downloader/downloader.h>

#include "ExitStatus.h"

namespace dlplay {
namespace {

constexpr double kBytesPerMiB = 1024.0 * 1024.0;

const char* LevelName(int level) {
  switch (level) {
    case kDLLevelCache: return "cache";
    case kDLLevelPcdn: return "pcdn";
    case kDLLevelLocalFile: return "local file";
    case kDLLevelHttp: return "http";
    default: return "other";
  }
}

std::string MiB(uint64_t bytes) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f MiB", static_cast<double>(bytes) / kBytesPerMiB);
  return text;
}

}  // namespace

std::string RequestReport::ToJson() const {
  nlohmann::ordered_json object;
  object["url"] = url;
  object["levels"] = levels;
  object["level"] = level;
  object["executor"] = executor;
  object["code"] = code;
  object["sub_code"] = subCode;
  object["sub_tag"] = downloader::SubCodeTag(subCode);
  object["bytes"] = bytes;
  object["sha256"] = sha256;
  object["ms"] = ms;
  object["cache_hit"] = cacheHit;
  object["error_kind"] = errorKind;
  object["error_message"] = errorMessage;
  return object.dump();
}

std::string RequestReport::FailureLine() const {
  const std::string path = url.substr(0, url.find_first_of("?#"));
  std::string line = path.substr(path.find_last_of('/') + 1);
  if (line.empty()) line = url;
  const std::string tag = downloader::SubCodeTag(subCode);
  line += ": " + (tag.empty() ? std::to_string(subCode) : tag);
  if (!errorMessage.empty()) line += ": " + errorMessage;
  return line;
}

std::vector<int> ParseLevelTrail(const std::string& trail) {
  std::vector<int> levels;
  std::istringstream parts(trail);
  std::string part;
  while (std::getline(parts, part, '>')) {
    if (!part.empty()) levels.push_back(std::atoi(part.c_str()));
  }
  return levels;
}

void PlaySummary::Add(const RequestReport& report) {
  ++requests_;
  bytes_ += report.bytes;
  downgrades_ += report.downgrades;
  if (report.code != 0 && failures_++ == 0) firstFailureStatus_ = ExitStatusFor(report.errorKind, report.subCode);
  if (report.cacheHit) ++cacheHits_;
  if (report.level >= 0) bytesPerLevel_[report.level] += report.bytes;
}

int PlaySummary::ExitStatus() const { return firstFailureStatus_; }

double PlaySummary::MeanSpeedMiBps() const {
  if (milliseconds_ <= 0) return 0;
  return static_cast<double>(bytes_) / kBytesPerMiB / (static_cast<double>(milliseconds_) / 1000.0);
}

std::vector<std::pair<std::string, std::string>> PlaySummary::Rows() const {
  std::vector<std::pair<std::string, std::string>> rows;
  rows.push_back({"requests", std::to_string(requests_) + " (" + std::to_string(failures_) + " failed)"});
  rows.push_back({"bytes", MiB(bytes_)});
  for (int level : {kDLLevelCache, kDLLevelPcdn, kDLLevelLocalFile, kDLLevelHttp}) {
    auto found = bytesPerLevel_.find(level);
    uint64_t bytes = found == bytesPerLevel_.end() ? 0 : found->second;
    rows.push_back({std::string("  from ") + LevelName(level), MiB(bytes)});
  }
  rows.push_back({"cache hits", std::to_string(cacheHits_) + " of " + std::to_string(requests_)});
  rows.push_back({"downgrades", std::to_string(downgrades_)});
  char speed[32];
  std::snprintf(speed, sizeof(speed), "%.1f MiB/s", MeanSpeedMiBps());
  rows.push_back({"mean speed", speed});
  rows.push_back({"time", std::to_string(milliseconds_) + " ms"});
  return rows;
}

std::string PlaySummary::Format(const std::string& title, const PlaySummary& summary) {
  std::string text = title + "\n";
  for (const auto& row : summary.Rows()) {
    char line[128];
    std::snprintf(line, sizeof(line), "  %-18s %s\n", row.first.c_str(), row.second.c_str());
    text += line;
  }
  return text;
}

std::string PlaySummary::FormatSideBySide(const std::string& leftTitle, const PlaySummary& left,
                                          const std::string& rightTitle, const PlaySummary& right) {
  auto leftRows = left.Rows();
  auto rightRows = right.Rows();
  char line[160];
  std::snprintf(line, sizeof(line), "  %-18s %-22s %s\n", "", leftTitle.c_str(), rightTitle.c_str());
  std::string text = line;
  for (size_t i = 0; i < std::min(leftRows.size(), rightRows.size()); ++i) {
    std::snprintf(line, sizeof(line), "  %-18s %-22s %s\n", leftRows[i].first.c_str(),
                  leftRows[i].second.c_str(), rightRows[i].second.c_str());
    text += line;
  }
  return text;
}

bool OpenJsonReport(const Options& options, std::ofstream* file, std::ostream** out, std::string* error) {
  *out = nullptr;
  if (!options.reportFile.empty()) {
    file->open(options.reportFile, std::ios::trunc);
    if (!*file) {
      *error = "cannot write " + options.reportFile;
      return false;
    }
    *out = file;
  } else if (options.jsonReport) {
    *out = options.MediaOnStdout() ? &std::cerr : &std::cout;
  }
  return true;
}

}  // namespace dlplay
