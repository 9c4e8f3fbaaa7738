// Where the downloader's files live under the host's root folder, and how
// cache and temporary file names are formed. Paths are joined with "/" on
// every platform (the Windows file seam accepts it).
//
//   <root>/kestreldl_folder/                        getDLBasePath(root)
//   <base>disk_cache/<version>/cache                getDiskCacheDir(base, version)
//   <base>disk_cache/v0/tmp                         getTmpDir(base)
//   <base>disk_cache/<version>/                     getVersionDir(base, version)
//   <directory>cache/cache.<name>                   getCacheFilePath(directory, name)
//   <directory>tmp/tmp.<name>                       getTmpFilePath(directory, name)
//
// The base path and a version directory end with "/", so the file names above
// are joined onto them directly; a cache file of version v therefore lies in
// getDiskCacheDir(base, v), and a temporary file in getTmpDir(base) when the
// directory is getVersionDir(base, "v0").
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DISKFILENAMEUTIL_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DISKFILENAMEUTIL_H_

#include <string>

namespace downloader {
namespace storage {

class DiskFileNameUtil {
 public:
  static const char* getSeparator() { return "/"; }

  // Trailing separators of `root` are dropped before joining, so "/data" and
  // "/data/" name the same base.
  static std::string getDLBasePath(const std::string& root);
  static std::string getDiskCacheDir(const std::string& base, const std::string& version);
  static std::string getTmpDir(const std::string& base);
  static std::string getVersionDir(const std::string& base, const std::string& version);
  static std::string getCacheFilePath(const std::string& directory, const std::string& name);
  static std::string getTmpFilePath(const std::string& directory, const std::string& name);

  // Everything before the last separator ("/" or "\"); "" when there is none.
  static std::string getParentPath(const std::string& path);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DISKFILENAMEUTIL_H_
