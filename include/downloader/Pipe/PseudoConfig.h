// The library's own configuration: an in-memory copy of the five groups it
// reads ("downloader_config", "wisp_play_start_config", "downloader_info",
// "http_downloader_kit", "xcdn"), so that a snapshot outlives the host's
// object. Other group names, matched case-sensitively, answer defaults.
//
// Thread rules: every method may be called from any thread; mutex_ is held for
// each whole read or update.
#ifndef DOWNLOADER_PIPE_PSEUDOCONFIG_H_
#define DOWNLOADER_PIPE_PSEUDOCONFIG_H_

#include <map>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/IConfigure.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT PseudoConfig : public protocols::IConfigure {
 public:
  using Group = std::map<std::string, std::string>;

  PseudoConfig();
  ~PseudoConfig() override;

  std::string GetValue(const std::string& group, const std::string& key,
                       const std::string& defaultValue) override;
  // Stub: the copy is read key by key, never handed out whole.
  std::map<std::string, std::string> GetGroup(const std::string& group) override;

  // Replaces each of the five groups by the host configuration's copy of it.
  // An empty pointer changes nothing.
  void Snapshot(const std::shared_ptr<protocols::IConfigure>& source);

  // Applies a numeric switch word (decimal text). With its enable bit (32)
  // set, stores "enable_mp" = word AND 64 and "force_mp_on" = word AND 128 in
  // "downloader_config" as decimal text ("0", "64", "128"): note that a set
  // bit therefore reads back false through the boolean readers. False, and
  // nothing stored, for an empty word, 0, a word above 4294967294 or a clear
  // enable bit.
  bool refreshConfig(const std::string& word);

 private:
  // Null for a name that is not one of the five groups.
  Group* FindGroup(const std::string& group);

  wisp::Mutex mutex_;
  Group downloaderConfig_ GUARDED_BY(mutex_);
  Group playStartConfig_ GUARDED_BY(mutex_);
  Group downloaderInfo_ GUARDED_BY(mutex_);
  Group httpDownloaderKit_ GUARDED_BY(mutex_);
  Group xcdn_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_PSEUDOCONFIG_H_
