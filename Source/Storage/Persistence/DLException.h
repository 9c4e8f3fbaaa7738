// The downloader's one exception: thrown only where using the storage before
// its set-up is a programming error (DiskAdapterProvider not initialised),
// never for bad data or a failing disk.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DLEXCEPTION_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DLEXCEPTION_H_

#include <stdexcept>
#include <string>

namespace downloader {

class DLException : public std::runtime_error {
 public:
  explicit DLException(const std::string& what) : std::runtime_error(what) {}
};

}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DLEXCEPTION_H_
