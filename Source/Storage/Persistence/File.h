// A path in the disk cache and, once opened, the file behind it: positional
// reads and writes through a DiskWriter, plus the path operations the cache
// and its cleaning need (status, directories, rename, removal, listing).
//
// A File names one path for its whole life: after `renameTo` the object still
// names the old path (an open handle keeps working on the renamed file).
//
// Thread rules: any thread; the DiskWriter serialises open and close and lets
// transfers run in parallel. The path operations touch no member state.
//
// Edge cases: `read` and `write` on a file that is not open return -1;
// `read` returns fewer bytes than asked only at the end of the file;
// `exists` is false, with a log line, when the status query fails.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_FILE_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_FILE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "Platform/FileSystem.h"
#include "Storage/Persistence/DiskWriter.h"

namespace downloader {
namespace storage {

class File {
 public:
  explicit File(std::string path, platform::FileSystem* fileSystem = platform::FileSystem::Default(),
                int64_t jobId = 0);

  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Handle operations (see DiskWriter).
  bool openExisting() { return writer_.openExistingFile(); }
  bool openReadOnly() { return writer_.openFileWithFlags(platform::kOpenRead); }
  bool create() { return writer_.createFile(); }
  void close() { writer_.closeFile(); }
  bool isOpen() const { return writer_.isOpen(); }
  bool canRead() const { return (writer_.openFlags() & platform::kOpenRead) != 0; }
  bool canWrite() const { return (writer_.openFlags() & platform::kOpenWrite) != 0; }

  int64_t read(void* buffer, uint64_t length, uint64_t position) {
    return writer_.readData(buffer, length, position);
  }
  int64_t readScattered(const std::vector<platform::ReadSlice>& slices, uint64_t position) {
    return writer_.readScattered(slices, position);
  }
  int64_t write(const void* data, uint64_t length, uint64_t position) {
    return writer_.writeData(data, length, position);
  }
  int64_t writeGather(const platform::WritePart* parts, size_t count, uint64_t position) {
    return writer_.writeGather(parts, count, position);
  }
  // Length of the open file.
  bool size(uint64_t* size) { return writer_.fileSize(size); }
  bool flushOSBuffers() { return writer_.flushOSBuffers(); }
  bool reserve(uint64_t position, uint64_t length) { return writer_.reserve(position, length); }

  // Path operations.
  bool exists();
  bool fillStat(platform::FileInfo* info);
  // The directories above this path.
  bool make_dirs();
  // This path as a directory, with the directories above it.
  bool mkdirs();
  bool renameTo(const std::string& newPath);
  // A file, or an empty directory.
  bool remove();
  // Names of the entries when this path is a directory.
  bool scandir(std::vector<std::string>* names);

  const std::string& path() const { return path_; }

 private:
  // Constant after construction.
  const std::string path_;
  platform::FileSystem* const fileSystem_;

  DiskWriter writer_;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_FILE_H_
