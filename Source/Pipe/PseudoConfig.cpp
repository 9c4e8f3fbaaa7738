#include <downloader/Pipe/PseudoConfig.h>

#include <cstdlib>

#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>

#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr unsigned long long kLargestSwitchWord = 4294967294ULL;
constexpr unsigned long long kEnableSwitchBit = 32;
constexpr unsigned long long kEnableMpBit = 64;
constexpr unsigned long long kForceMpOnBit = 128;

}  // namespace

PseudoConfig::PseudoConfig() = default;

PseudoConfig::~PseudoConfig() = default;

PseudoConfig::Group* PseudoConfig::FindGroup(const std::string& group) {
  if (group == kDownloaderConfigGroup) return &downloaderConfig_;
  if (group == kPlayStartConfigGroup) return &playStartConfig_;
  if (group == kDownloaderInfoGroup) return &downloaderInfo_;
  if (group == kHttpDownloaderKitGroup) return &httpDownloaderKit_;
  if (group == kXcdnGroup) return &xcdn_;
  return nullptr;
}

std::string PseudoConfig::GetValue(const std::string& group, const std::string& key,
                                   const std::string& defaultValue) {
  wisp::MutexLock lock(&mutex_);
  const Group* values = FindGroup(group);
  if (values == nullptr) return defaultValue;
  auto found = values->find(key);
  return found == values->end() ? defaultValue : found->second;
}

std::map<std::string, std::string> PseudoConfig::GetGroup(const std::string& /*group*/) { return {}; }

void PseudoConfig::Snapshot(const std::shared_ptr<protocols::IConfigure>& source) {
  if (!source) return;
  for (const char* name : {kDownloaderConfigGroup, kPlayStartConfigGroup, kDownloaderInfoGroup,
                           kHttpDownloaderKitGroup, kXcdnGroup}) {
    // Fetched outside the lock: the host's object may take its own locks.
    Group copy = source->GetGroup(name);
    wisp::MutexLock lock(&mutex_);
    FindGroup(name)->swap(copy);
  }
}

bool PseudoConfig::refreshConfig(const std::string& word) {
  DL_LOGI << "pseudoconfig,refresh_dsp:" << word;
  if (word.empty()) return false;
  unsigned long long number = std::strtoull(word.c_str(), nullptr, 10);
  DL_LOGI << "pseudoconfig,refresh_dsp,cfg:" << number;
  if (number == 0 || number > kLargestSwitchWord || (number & kEnableSwitchBit) == 0) return false;
  DL_LOGI << "pseudoconfig,refresh_dsp,enable_switch";
  wisp::MutexLock lock(&mutex_);
  downloaderConfig_["enable_mp"] = std::to_string(number & kEnableMpBit);
  downloaderConfig_["force_mp_on"] = std::to_string(number & kForceMpOnBit);
  return true;
}

}  // namespace downloader
