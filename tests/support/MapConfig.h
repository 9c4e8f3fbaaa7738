// A host-style configuration backed by maps, for tests. Thread-safe.
#ifndef TESTS_SUPPORT_MAPCONFIG_H_
#define TESTS_SUPPORT_MAPCONFIG_H_

#include <map>
#include <mutex>
#include <string>

#include <downloader/Pipe/IConfigure.h>

namespace dltest {

class MapConfig : public protocols::IConfigure {
 public:
  void Set(const std::string& group, const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> lock(mutex_);
    groups_[group][key] = value;
  }
  // The library's main group.
  void Set(const std::string& key, const std::string& value) { Set("downloader_config", key, value); }

  std::string GetValue(const std::string& group, const std::string& key,
                       const std::string& defaultValue) override {
    std::lock_guard<std::mutex> lock(mutex_);
    auto g = groups_.find(group);
    if (g == groups_.end()) return defaultValue;
    auto v = g->second.find(key);
    return v == g->second.end() ? defaultValue : v->second;
  }
  std::map<std::string, std::string> GetGroup(const std::string& group) override {
    std::lock_guard<std::mutex> lock(mutex_);
    auto g = groups_.find(group);
    return g == groups_.end() ? std::map<std::string, std::string>() : g->second;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::map<std::string, std::string>> groups_;
};

}  // namespace dltest

#endif  // TESTS_SUPPORT_MAPCONFIG_H_
