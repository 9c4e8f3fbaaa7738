// Input: a URL, a parameter name and value, and a setting's text, each taken
// as a length-prefixed string. A URI always has an identity whose cache file
// name is plain; a parameter added to a URL reads back; settings parse to a
// number or a switch without trouble, and the switch word stores only what it
// documents.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/PseudoConfig.h>

#include "Base/UrlUtil.h"
#include "Storage/CacheFileName.h"

namespace {

constexpr size_t kLongestText = 4096;
constexpr size_t kHashedNameLength = 33;

void Check(bool condition) {
  if (!condition) std::abort();
}

bool IsPlainFileName(const std::string& name) {
  if (name.empty() || name.size() > kHashedNameLength) return false;
  return name.find_first_not_of("0123456789abcdefh") == std::string::npos;
}

void CheckUrl(const std::string& url, const std::string& name, const std::string& value) {
  auto uri = downloader::URI::From(url, {{name, value}});
  Check(!uri->ID().empty());
  Check(IsPlainFileName(downloader::storage::CacheFileName::FromId(uri->ID())));
  Check(IsPlainFileName(downloader::storage::CacheFileName::FromId(url)));
  Check(uri->ContainsParamKey(name));
  const int32_t type = uri->GetURIType();
  Check(type >= kDLUrlM3u8 && type <= kDLUrlOther && type != kDLUrlSpare);

  downloader::UrlUtil::Host(url);
  const bool plainName = !name.empty() && name.find_first_of("&=#?") == std::string::npos;
  const bool plainValue = value.find_first_of("&#") == std::string::npos;
  const bool plainUrl = url.find_first_of("#") == std::string::npos &&
                        !downloader::UrlUtil::HasQueryParam(url, name);
  const std::string added = downloader::UrlUtil::AddQueryParam(url, name, value);
  if (plainName && plainValue && plainUrl) Check(downloader::UrlUtil::QueryValue(added, name) == value);
}

void CheckSetting(const std::string& text) {
  downloader::ParseInt32(text);
  downloader::ParseInt64(text);
  Check(downloader::ParseBool(text) == (text == "true" || text == "1"));
  downloader::PseudoConfig config;
  if (!config.refreshConfig(text)) {
    Check(config.GetValue("downloader_config", "enable_mp", "unset") == "unset");
    return;
  }
  const std::string enableMp = config.GetValue("downloader_config", "enable_mp", "unset");
  const std::string forceMpOn = config.GetValue("downloader_config", "force_mp_on", "unset");
  Check(enableMp == "0" || enableMp == "64");
  Check(forceMpOn == "0" || forceMpOn == "128");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string url = input.ConsumeRandomLengthString(kLongestText);
  const std::string name = input.ConsumeRandomLengthString(kLongestText);
  const std::string value = input.ConsumeRandomLengthString(kLongestText);
  const std::string setting = input.ConsumeRandomLengthString(kLongestText);
  CheckUrl(url, name, value);
  CheckSetting(setting);
  return 0;
}
