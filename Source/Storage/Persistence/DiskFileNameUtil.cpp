#include "Storage/Persistence/DiskFileNameUtil.h"

#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

constexpr char kBaseFolder[] = "kestreldl_folder";
constexpr char kDiskCacheFolder[] = "disk_cache";
constexpr char kCacheFolder[] = "cache";
constexpr char kTmpFolder[] = "tmp";
constexpr char kTmpVersion[] = "v0";
constexpr char kCachePrefix[] = "cache.";
constexpr char kTmpPrefix[] = "tmp.";

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace

std::string DiskFileNameUtil::getDLBasePath(const std::string& root) {
  std::string rootPath = root;
  // "/" alone stays, so that a root of "/" still means the file-system root.
  while (rootPath.size() > 1 && IsSeparator(rootPath.back())) rootPath.pop_back();
  std::string basePath = rootPath;
  if (basePath.empty() || !IsSeparator(basePath.back())) basePath += getSeparator();
  basePath += kBaseFolder;
  DL_LOGD << "[diskcache]getDLBasePath,basePath:" << basePath << ",rootPath:" << root;
  std::string dlBasePath = basePath + getSeparator();
  DL_LOGD << "[diskcache]getDLBasePath,dlBasePath:" << dlBasePath;
  return dlBasePath;
}

std::string DiskFileNameUtil::getDiskCacheDir(const std::string& base, const std::string& version) {
  return getVersionDir(base, version) + kCacheFolder;
}

std::string DiskFileNameUtil::getTmpDir(const std::string& base) {
  return getVersionDir(base, kTmpVersion) + kTmpFolder;
}

std::string DiskFileNameUtil::getVersionDir(const std::string& base, const std::string& version) {
  return base + kDiskCacheFolder + getSeparator() + version + getSeparator();
}

std::string DiskFileNameUtil::getCacheFilePath(const std::string& directory, const std::string& name) {
  return directory + kCacheFolder + getSeparator() + kCachePrefix + name;
}

std::string DiskFileNameUtil::getTmpFilePath(const std::string& directory, const std::string& name) {
  return directory + kTmpFolder + getSeparator() + kTmpPrefix + name;
}

std::string DiskFileNameUtil::getParentPath(const std::string& path) {
  size_t end = path.size();
  while (end > 0 && !IsSeparator(path[end - 1])) --end;
  while (end > 1 && IsSeparator(path[end - 1])) --end;
  return path.substr(0, end);
}

}  // namespace storage
}  // namespace downloader
