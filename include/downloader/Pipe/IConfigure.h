// The host's settings: every tunable is text looked up by group and key.
//
// The library reads settings when an object is created or a stream opens,
// from several threads at once: a host implementation must be thread-safe.
// Only GetValue and GetGroup carry meaning inside the library (the download
// manager copies groups out of a host configuration with GetGroup); the other
// slots exist for the host's own use and the library never calls them.
//
// Typed reading with the library's conversion rules is in ConfigReader.h.
#ifndef DOWNLOADER_PIPE_ICONFIGURE_H_
#define DOWNLOADER_PIPE_ICONFIGURE_H_

#include <map>
#include <string>

#include <downloader/DownloaderExport.h>

namespace protocols {

class DOWNLOADER_EXPORT IConfigure {
 public:
  virtual ~IConfigure();

  // The text stored under group and key, or `defaultValue` when there is none.
  virtual std::string GetValue(const std::string& group, const std::string& key,
                               const std::string& defaultValue) = 0;
  // Every key of one group; empty for an unknown group.
  virtual std::map<std::string, std::string> GetGroup(const std::string& group) = 0;

  // Host-defined slots, unused by the library.
  virtual void Subscribe(const std::string& group);
  virtual void Unsubscribe(const std::string& group);
  virtual std::string GetDefaultValue(const std::string& group, const std::string& key,
                                      const std::string& defaultValue);
  virtual void Notify(const std::string& group, const std::string& key);
  virtual void Remove(const std::string& group, const std::string& key);
};

}  // namespace protocols

#endif  // DOWNLOADER_PIPE_ICONFIGURE_H_
