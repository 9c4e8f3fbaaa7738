// Where the extra network channel is decided. The channel itself is not built
// yet: this keeps what the host hands it (the latest configuration and the
// user's setting) so that the decision can start from them, and answers
// "no extra channel" meanwhile.
//
// Thread rules: any thread; mutex_ guards the members.
#ifndef DOWNLOADER_STRATEGY_EXTRACHANNELSTRATEGY_H_
#define DOWNLOADER_STRATEGY_EXTRACHANNELSTRATEGY_H_

#include <memory>
#include <string>

#include <downloader/Pipe/IConfigure.h>
#include <wisp/Mutex.h>

namespace downloader {

class ExtraChannelStrategy {
 public:
  // The current library context's.
  static ExtraChannelStrategy& GetInstance();

  ExtraChannelStrategy() = default;

  void UpdateConfig(const std::shared_ptr<protocols::IConfigure>& config);
  void SetUserSetting(const std::string& setting);
  std::string UserSetting();

  // The text the host asks for with parameter 4028: empty while no extra
  // channel exists.
  std::string Info();

 private:
  wisp::Mutex mutex_;
  std::shared_ptr<protocols::IConfigure> config_ GUARDED_BY(mutex_);
  std::string userSetting_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_EXTRACHANNELSTRATEGY_H_
