#include "IniConfig.h"

#include <fstream>
#include <sstream>

#include <wisp/Mutex.h>

#include "TextTrim.h"

namespace dlplay {
namespace {

bool IsComment(const std::string& line) { return line.empty() || line[0] == '#' || line[0] == ';'; }

}  // namespace

bool IniConfig::LoadText(const std::string& text, std::string* error) {
  std::istringstream lines(text);
  std::string line;
  std::string group;
  int lineNumber = 0;
  while (std::getline(lines, line)) {
    ++lineNumber;
    line = Trim(line);
    if (IsComment(line)) continue;
    if (line.front() == '[' && line.back() == ']') {
      group = Trim(line.substr(1, line.size() - 2));
      continue;
    }
    size_t equals = line.find('=');
    if (equals == std::string::npos || group.empty() || equals == 0) {
      *error = "line " + std::to_string(lineNumber) + ": expected [group] or key = value";
      return false;
    }
    Set(group, Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
  }
  return true;
}

bool IniConfig::LoadFile(const std::string& path, std::string* error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    *error = "cannot read " + path;
    return false;
  }
  std::ostringstream text;
  text << file.rdbuf();
  if (!LoadText(text.str(), error)) {
    *error = path + ": " + *error;
    return false;
  }
  return true;
}

void IniConfig::Set(const std::string& group, const std::string& key, const std::string& value) {
  wisp::MutexLock lock(&mutex_);
  groups_[group][key] = value;
}

std::string IniConfig::GetValue(const std::string& group, const std::string& key,
                                const std::string& defaultValue) {
  wisp::MutexLock lock(&mutex_);
  auto found = groups_.find(group);
  if (found == groups_.end()) return defaultValue;
  auto value = found->second.find(key);
  return value == found->second.end() ? defaultValue : value->second;
}

std::map<std::string, std::string> IniConfig::GetGroup(const std::string& group) {
  wisp::MutexLock lock(&mutex_);
  auto found = groups_.find(group);
  return found == groups_.end() ? std::map<std::string, std::string>() : found->second;
}

}  // namespace dlplay
