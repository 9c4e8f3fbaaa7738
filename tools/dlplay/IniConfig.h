// dlplay's configuration object for the library: settings read from an
// INI-style file ("[group]" lines, then "key = value" lines; "#" and ";"
// start comments) and from --set, answered by group and key.
//
// Thread rules: the library reads it from several threads; mutex_ guards the
// groups. Load and Set are called before playing.
#ifndef TOOLS_DLPLAY_INICONFIG_H_
#define TOOLS_DLPLAY_INICONFIG_H_

#include <map>
#include <string>

#include <downloader/downloader.h>
#include <wisp/Mutex.h>

namespace dlplay {

class IniConfig : public protocols::IConfigure {
 public:
  // False, with `error` naming the line, for a key outside any group or a
  // line that is neither a group, a setting nor a comment.
  bool LoadText(const std::string& text, std::string* error);
  bool LoadFile(const std::string& path, std::string* error);
  void Set(const std::string& group, const std::string& key, const std::string& value);

  std::string GetValue(const std::string& group, const std::string& key,
                       const std::string& defaultValue) override;
  std::map<std::string, std::string> GetGroup(const std::string& group) override;

 private:
  wisp::Mutex mutex_;
  std::map<std::string, std::map<std::string, std::string>> groups_ GUARDED_BY(mutex_);
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_INICONFIG_H_
