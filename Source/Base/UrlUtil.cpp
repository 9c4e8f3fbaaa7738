#include "Base/UrlUtil.h"

namespace downloader {
namespace {

struct QueryBounds {
  size_t begin = std::string::npos;  // first character after '?'
  size_t end = std::string::npos;    // the fragment's '#' or the end of the text
};

QueryBounds FindQuery(const std::string& url) {
  QueryBounds bounds;
  size_t fragment = url.find('#');
  bounds.end = fragment == std::string::npos ? url.size() : fragment;
  size_t question = url.find('?');
  if (question != std::string::npos && question < bounds.end) bounds.begin = question + 1;
  return bounds;
}

// Position of the value of parameter `name`, or npos.
size_t FindQueryValue(const std::string& url, const std::string& name) {
  QueryBounds bounds = FindQuery(url);
  if (bounds.begin == std::string::npos || name.empty()) return std::string::npos;
  size_t item = bounds.begin;
  while (item < bounds.end) {
    size_t itemEnd = url.find('&', item);
    if (itemEnd == std::string::npos || itemEnd > bounds.end) itemEnd = bounds.end;
    if (url.compare(item, name.size(), name) == 0) {
      size_t after = item + name.size();
      if (after == itemEnd) return after;
      if (url[after] == '=') return after + 1;
    }
    item = itemEnd + 1;
  }
  return std::string::npos;
}

}  // namespace

std::string UrlUtil::AddQueryParam(const std::string& url, const std::string& name, const std::string& value) {
  QueryBounds bounds = FindQuery(url);
  std::string separator;
  if (bounds.begin == std::string::npos) {
    separator = "?";
  } else if (bounds.end > bounds.begin && url[bounds.end - 1] != '&') {
    separator = "&";
  }
  return url.substr(0, bounds.end) + separator + name + "=" + value + url.substr(bounds.end);
}

std::string UrlUtil::Host(const std::string& url) {
  size_t scheme = url.find("://");
  if (scheme == std::string::npos) return std::string();
  size_t begin = scheme + 3;
  size_t end = url.find_first_of("/?#", begin);
  if (end == std::string::npos) end = url.size();
  std::string authority = url.substr(begin, end - begin);
  size_t userInfo = authority.rfind('@');
  if (userInfo != std::string::npos) authority.erase(0, userInfo + 1);
  if (!authority.empty() && authority.front() == '[') {
    size_t close = authority.find(']');
    return close == std::string::npos ? std::string() : authority.substr(0, close + 1);
  }
  return authority.substr(0, authority.find(':'));
}

std::string UrlUtil::QueryValue(const std::string& url, const std::string& name) {
  size_t value = FindQueryValue(url, name);
  if (value == std::string::npos) return std::string();
  size_t end = url.find_first_of("&#", value);
  return url.substr(value, end == std::string::npos ? std::string::npos : end - value);
}

bool UrlUtil::HasQueryParam(const std::string& url, const std::string& name) {
  return FindQueryValue(url, name) != std::string::npos;
}

}  // namespace downloader
