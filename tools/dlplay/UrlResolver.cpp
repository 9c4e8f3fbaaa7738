#include "UrlResolver.h"

#include <vector>

namespace dlplay {
namespace {

constexpr char kSchemeSeparator[] = "://";

bool HasScheme(const std::string& reference) {
  size_t separator = reference.find(kSchemeSeparator);
  if (separator == std::string::npos || separator == 0) return false;
  for (size_t i = 0; i < separator; ++i) {
    char c = reference[i];
    bool schemeChar = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '+' || c == '-' || c == '.';
    if (!schemeChar) return false;
  }
  return true;
}

// "http://host:80" out of "http://host:80/a/b?q"; empty when there is no scheme.
std::string Origin(const std::string& url) {
  size_t separator = url.find(kSchemeSeparator);
  if (separator == std::string::npos) return std::string();
  size_t pathStart = url.find_first_of("/?#", separator + sizeof(kSchemeSeparator) - 1);
  return pathStart == std::string::npos ? url : url.substr(0, pathStart);
}

// `path` begins with '/'. "/a/b/../c/./d" becomes "/a/c/d"; a path that ends
// in "." or ".." keeps a trailing slash, as a directory.
std::string RemoveDotSegments(const std::string& path) {
  std::vector<std::string> kept;
  bool endsAsDirectory = false;
  size_t start = 1;
  for (;;) {
    size_t end = path.find('/', start);
    std::string segment = path.substr(start, end == std::string::npos ? std::string::npos : end - start);
    endsAsDirectory = segment == "." || segment == "..";
    if (segment == "..") {
      if (!kept.empty()) kept.pop_back();
    } else if (segment != ".") {
      kept.push_back(segment);
    }
    if (end == std::string::npos) break;
    start = end + 1;
  }
  std::string result;
  for (const std::string& segment : kept) result += "/" + segment;
  if (endsAsDirectory || result.empty()) result += "/";
  return result;
}

std::string SplitPathAndRest(const std::string& reference, std::string* rest) {
  size_t cut = reference.find_first_of("?#");
  if (cut == std::string::npos) {
    rest->clear();
    return reference;
  }
  *rest = reference.substr(cut);
  return reference.substr(0, cut);
}

}  // namespace

std::string ResolveUrl(const std::string& base, const std::string& reference) {
  if (reference.empty()) return base;
  if (HasScheme(reference)) return reference;
  std::string origin = Origin(base);
  if (reference.compare(0, 2, "//") == 0) {
    size_t separator = base.find(kSchemeSeparator);
    return separator == std::string::npos ? reference : base.substr(0, separator + 1) + reference;
  }
  std::string rest;
  std::string referencePath = SplitPathAndRest(reference, &rest);
  if (referencePath.empty()) {
    std::string baseRest;
    return SplitPathAndRest(base, &baseRest) + rest;
  }
  if (referencePath[0] == '/') return origin + RemoveDotSegments(referencePath) + rest;
  std::string baseRest;
  std::string basePath = SplitPathAndRest(base, &baseRest).substr(origin.size());
  size_t lastSlash = basePath.rfind('/');
  std::string directory = lastSlash == std::string::npos ? "/" : basePath.substr(0, lastSlash + 1);
  return origin + RemoveDotSegments(directory + referencePath) + rest;
}

}  // namespace dlplay
