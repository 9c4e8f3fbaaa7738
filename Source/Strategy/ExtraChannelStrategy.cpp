#include "Strategy/ExtraChannelStrategy.h"
#include <wisp/Mutex.h>

#include "Utils/context/LibraryContext.h"

namespace downloader {

ExtraChannelStrategy& ExtraChannelStrategy::GetInstance() {
  return LibraryContext::Current().Get<ExtraChannelStrategy>();
}

void ExtraChannelStrategy::UpdateConfig(const std::shared_ptr<protocols::IConfigure>& config) {
  wisp::MutexLock lock(&mutex_);
  config_ = config;
}

void ExtraChannelStrategy::SetUserSetting(const std::string& setting) {
  wisp::MutexLock lock(&mutex_);
  userSetting_ = setting;
}

std::string ExtraChannelStrategy::UserSetting() {
  wisp::MutexLock lock(&mutex_);
  return userSetting_;
}

std::string ExtraChannelStrategy::Info() { return std::string(); }

}  // namespace downloader
