#include "Base/Settings.h"

#include <limits>

namespace downloader {
namespace {

constexpr char kRequestGroup[] = "request";
constexpr char kEmptyText[] = "(empty)";
constexpr char kAbsentText[] = "(absent)";
constexpr char kPrefixMark[] = "*";

// Each field arrives holding its default, which is what the reader hands on.
void ReadSetting(const ConfigPtr& config, const char* group, const char* key, int32_t* field) {
  *field = ReadConfigInt(config, group, key, *field);
}
void ReadSetting(const ConfigPtr& config, const char* group, const char* key, int64_t* field) {
  *field = ReadConfigInt64(config, group, key, *field);
}
void ReadSetting(const ConfigPtr& config, const char* group, const char* key, bool* field) {
  *field = ReadConfigBool(config, group, key, *field);
}
void ReadSetting(const ConfigPtr& config, const char* group, const char* key, std::string* field) {
  *field = ReadConfigString(config, group, key, *field);
}

void ReadParam(const StreamParams& params, const char* key, int32_t* field) {
  *field = ReadParamInt(params, key, *field);
}
void ReadParam(const StreamParams& params, const char* key, int64_t* field) {
  *field = ReadParamInt64(params, key, *field);
}
void ReadParam(const StreamParams& params, const char* key, bool* field) {
  *field = ReadParamBool(params, key, *field);
}
void ReadParam(const StreamParams& params, const char* key, std::string* field) {
  *field = ReadParamString(params, key, *field);
}
void ReadParam(const StreamParams& params, const char* key, std::optional<int32_t>* field) {
  auto found = params.find(key);
  if (found != params.end()) *field = ParseInt32(found->second);
}
void ReadParam(const StreamParams& params, const char* key, std::optional<std::string>* field) {
  auto found = params.find(key);
  if (found != params.end()) *field = found->second;
}

std::string DefaultText(int32_t value) { return std::to_string(value); }
std::string DefaultText(int64_t value) { return std::to_string(value); }
std::string DefaultText(bool value) { return value ? "true" : "false"; }
std::string DefaultText(const std::string& value) { return value.empty() ? kEmptyText : value; }
template <typename T>
std::string DefaultText(const std::optional<T>& value) {
  return value ? DefaultText(*value) : kAbsentText;
}

}  // namespace

const SettingPrefix kCellularHostGearSetting = {kHttpDownloaderKitGroup, "cellular_host_gear_", ""};

namespace {
thread_local const DownloaderSettings::OpenScope* innermostOpenScope = nullptr;
}  // namespace

DownloaderSettings::OpenScope::OpenScope(const ConfigPtr& config, const DownloaderSettings& settings)
    : config_(config.get()), settings_(settings), outer_(innermostOpenScope) {
  innermostOpenScope = this;
}

DownloaderSettings::OpenScope::~OpenScope() { innermostOpenScope = outer_; }

DownloaderSettings DownloaderSettings::Read(const ConfigPtr& config) {
  const OpenScope* scope = innermostOpenScope;
  if (scope != nullptr && config != nullptr && scope->config_ == config.get()) return scope->settings_;
  DownloaderSettings settings;
#define DL_READ_SETTING(group, field, key, type, fallback, meaning) ReadSetting(config, group, key, &settings.field);
  DL_DOWNLOADER_SETTINGS(DL_READ_SETTING)
#undef DL_READ_SETTING
  return settings;
}

RequestParams RequestParams::Read(const StreamParams& params) {
  RequestParams read;
#define DL_READ_PARAM(field, key, type, fallback, meaning) ReadParam(params, key, &read.field);
  DL_REQUEST_PARAMS(DL_READ_PARAM)
#undef DL_READ_PARAM
  return read;
}

std::string ReadPrefixedSetting(const ConfigPtr& config, const SettingPrefix& setting, const std::string& suffix) {
  return ReadConfigString(config, setting.group, setting.keyPrefix + suffix, setting.defaultValue);
}

int32_t ClampToInt32(int64_t value) {
  if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

std::vector<SettingRow> SettingRows() {
  std::vector<SettingRow> rows;
  const DownloaderSettings settings;
#define DL_SETTING_ROW(group, field, key, type, fallback, meaning) \
  rows.push_back({group, key, #type, DefaultText(settings.field), meaning});
  DL_DOWNLOADER_SETTINGS(DL_SETTING_ROW)
#undef DL_SETTING_ROW
  rows.push_back({kCellularHostGearSetting.group, std::string(kCellularHostGearSetting.keyPrefix) + kPrefixMark,
                  "String", DefaultText(std::string(kCellularHostGearSetting.defaultValue)),
                  "cellular host of the quality gear named by the URL's gear_index or slice_gear_index"});
  const RequestParams params;
#define DL_PARAM_ROW(field, key, type, fallback, meaning) \
  rows.push_back({kRequestGroup, key, #type, DefaultText(params.field), meaning});
  DL_REQUEST_PARAMS(DL_PARAM_ROW)
#undef DL_PARAM_ROW
  return rows;
}

}  // namespace downloader
