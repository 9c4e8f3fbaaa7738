#include <downloader/Pipe/ConfigReader.h>

#include <cstdlib>

#include "Base/Settings.h"

namespace downloader {

const char kDownloaderConfigGroup[] = "downloader_config";
const char kPlayStartConfigGroup[] = "wisp_play_start_config";
const char kDownloaderInfoGroup[] = "downloader_info";
const char kHttpDownloaderKitGroup[] = "http_downloader_kit";
const char kXcdnGroup[] = "xcdn";
const char kDownloaderLiveConfigGroup[] = "downloader_live_config";

namespace {

const char kTrueText[] = "true";
const char kOneText[] = "1";

const char* BoolText(bool value) { return value ? kTrueText : "false"; }

}  // namespace

int64_t ParseInt64(const std::string& text) {
  // strtoll already clamps to the 64-bit range on overflow.
  return std::strtoll(text.c_str(), nullptr, 10);
}

int32_t ParseInt32(const std::string& text) { return ClampToInt32(ParseInt64(text)); }

bool ParseBool(const std::string& text) { return text == kTrueText || text == kOneText; }

std::string ReadConfigString(const ConfigPtr& config, const std::string& group, const std::string& key,
                             const std::string& defaultValue) {
  if (!config) return defaultValue;
  return config->GetValue(group, key, defaultValue);
}

int32_t ReadConfigInt(const ConfigPtr& config, const std::string& group, const std::string& key,
                      int32_t defaultValue) {
  if (!config) return defaultValue;
  return ParseInt32(config->GetValue(group, key, std::to_string(defaultValue)));
}

int64_t ReadConfigInt64(const ConfigPtr& config, const std::string& group, const std::string& key,
                        int64_t defaultValue) {
  if (!config) return defaultValue;
  return ParseInt64(config->GetValue(group, key, std::to_string(defaultValue)));
}

bool ReadConfigBool(const ConfigPtr& config, const std::string& group, const std::string& key,
                    bool defaultValue) {
  if (!config) return defaultValue;
  return ParseBool(config->GetValue(group, key, BoolText(defaultValue)));
}

std::string ReadParamString(const StreamParams& params, const std::string& key,
                            const std::string& defaultValue) {
  auto found = params.find(key);
  return found == params.end() ? defaultValue : found->second;
}

int32_t ReadParamInt(const StreamParams& params, const std::string& key, int32_t defaultValue) {
  auto found = params.find(key);
  return found == params.end() ? defaultValue : ParseInt32(found->second);
}

int64_t ReadParamInt64(const StreamParams& params, const std::string& key, int64_t defaultValue) {
  auto found = params.find(key);
  return found == params.end() ? defaultValue : ParseInt64(found->second);
}

bool ReadParamBool(const StreamParams& params, const std::string& key, bool defaultValue) {
  auto found = params.find(key);
  return found == params.end() ? defaultValue : ParseBool(found->second);
}

}  // namespace downloader
