// The name under which a resource's cache file is kept, from its URI's ID.
// The ID may come from a host's identifier, so it is never trusted as a file
// name: the default identifier's decimal hash is kept as it is (existing
// caches keep their files), and any other text is replaced by a hash of it,
// so that no "../", separator, drive, NUL or overlong text reaches the path.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_STORAGE_CACHEFILENAME_H_
#define DOWNLOADER_STORAGE_CACHEFILENAME_H_

#include <string>

namespace downloader {
namespace storage {

class CacheFileName {
 public:
  static std::string FromId(const std::string& id);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_CACHEFILENAME_H_
