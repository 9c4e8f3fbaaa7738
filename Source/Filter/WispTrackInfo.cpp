#include "Filter/WispTrackInfo.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace downloader {

bool WispTrackInfo::Parse(const std::string& text, Record* record, std::string* reason) {
  record->clear();
  const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) {
    *reason = "not JSON";
    return false;
  }
  if (!parsed.is_object()) {
    *reason = "not an object";
    return false;
  }
  Record members;
  for (auto member = parsed.begin(); member != parsed.end(); ++member) {
    const nlohmann::json& value = member.value();
    if (value.is_string()) {
      members[member.key()] = value.get<std::string>();
    } else if (value.is_number() || value.is_boolean()) {
      members[member.key()] = value.dump();
    } else {
      *reason = "member \"" + member.key() + "\" is not a string, number or boolean";
      return false;
    }
  }
  *record = std::move(members);
  return true;
}

std::string WispTrackInfo::ToText(const Record& record) {
  nlohmann::json object = nlohmann::json::object();
  for (const auto& member : record) object[member.first] = member.second;
  // Parsed text is valid UTF-8 already; replacing keeps dump from ever throwing.
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace downloader
