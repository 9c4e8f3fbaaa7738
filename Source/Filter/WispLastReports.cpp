#include "Filter/WispLastReports.h"

#include <cstdio>
#include <deque>

#include <wisp/Mutex.h>

namespace downloader {
namespace {

struct Registry {
  wisp::Mutex mutex;
  std::map<int32_t, std::deque<WispLastReports::Record>> byPlayer GUARDED_BY(mutex);
};

Registry& TheRegistry() {
  static Registry* registry = new Registry();  // never destroyed: reports may come during exit
  return *registry;
}

void AppendJsonString(const std::string& text, std::string* out) {
  out->push_back('"');
  for (char c : text) {
    switch (c) {
      case '"': *out += "\\\""; break;
      case '\\': *out += "\\\\"; break;
      case '\n': *out += "\\n"; break;
      case '\r': *out += "\\r"; break;
      case '\t': *out += "\\t"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
          *out += escaped;
        } else {
          out->push_back(c);
        }
    }
  }
  out->push_back('"');
}

}  // namespace

std::vector<WispLastReports::Record> WispLastReports::Keep(int32_t playerId, const Record& record) {
  Registry& registry = TheRegistry();
  wisp::MutexLock lock(&registry.mutex);
  std::deque<Record>& kept = registry.byPlayer[playerId];
  kept.push_back(record);
  while (kept.size() > kKeptPerPlayer) kept.pop_front();
  return std::vector<Record>(kept.begin(), kept.end());
}

std::string WispLastReports::ToText(const std::vector<Record>& records) {
  std::string text = "[";
  for (size_t i = 0; i < records.size(); ++i) {
    if (i > 0) text.push_back(',');
    text.push_back('{');
    bool first = true;
    for (const auto& field : records[i]) {
      if (!first) text.push_back(',');
      first = false;
      AppendJsonString(field.first, &text);
      text.push_back(':');
      AppendJsonString(field.second, &text);
    }
    text.push_back('}');
  }
  text.push_back(']');
  return text;
}

}  // namespace downloader
