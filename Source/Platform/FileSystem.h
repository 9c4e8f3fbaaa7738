// The one seam between the library and the platform's file system: positional
// file I/O on handles that other handles of the same file may share for
// reading and writing at once, and the directory operations the cache needs.
// Paths are UTF-8 everywhere; the Windows half converts them to UTF-16.
//
// The storage code reaches the disk only through a `FileSystem`, so that tests
// can hand it a wrapper that injects faults, and a fuzzer an in-memory file.
//
// Thread rules: `FileSystem::Default()` and its methods may be called from any
// thread. A `PositionalFile` may be used from several threads at once: its
// calls carry their own offsets and share no cursor.
//
// Edge cases every implementation follows:
// - Read at or past the end of the file succeeds with fewer bytes (0 past
//   the end); a short count is never an error by itself.
// - Write past the end extends the file; the gap reads as zero bytes.
// - Offsets above the platform's signed 64-bit range fail with
//   kInvalidArgument before any system call.
// - A write that the system accepts only in part returns Ok with the count it
//   took only when the system reported no error; otherwise the error, with
//   `*bytesWritten` telling how much did land.
// - Rename replaces an existing target; the source may be open elsewhere.
// - RemoveFile of a file that other handles hold open succeeds; POSIX drops
//   the name at once, Windows when the last handle closes (until then the
//   name still exists and cannot be created anew).
// - CreateDir of an existing directory is kAlreadyExists; CreateDirs treats
//   it as success.
#ifndef DOWNLOADER_PLATFORM_FILESYSTEM_H_
#define DOWNLOADER_PLATFORM_FILESYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/FileStatus.h"

namespace downloader {
namespace platform {

// Bits of the `flags` argument of FileSystem::OpenFile.
enum OpenFlag : uint32_t {
  kOpenRead = 1u << 0,
  kOpenWrite = 1u << 1,
  // Creates the file when it does not exist (the parent must exist).
  kOpenCreate = 1u << 2,
  // Cuts an existing file to zero length; needs kOpenWrite.
  kOpenTruncate = 1u << 3,
  // Refuses (kInvalidArgument) whatever is not a regular file: a directory, a
  // device, a pipe. Opening never waits for a pipe's other end.
  kOpenRegularOnly = 1u << 4,
};

// One destination of a scattered read: `length` bytes into `buffer`.
struct ReadSlice {
  void* buffer;
  size_t length;
};

// One piece of a gathered write.
struct WritePart {
  const void* data = nullptr;
  size_t length = 0;
};

struct FileInfo {
  bool isDirectory = false;
  uint64_t size = 0;
  // Last modification, milliseconds since 1970-01-01 UTC.
  int64_t modifiedMillis = 0;
};

class PositionalFile {
 public:
  virtual ~PositionalFile() = default;

  // Up to `length` bytes at `offset` into `buffer`; fewer only at the end of
  // the file or on error.
  virtual FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) = 0;
  // Consecutive bytes from `offset` spread over `slices` in order, in one
  // system call where the platform has one; the same end-of-file rule as
  // Read. The default reads slice by slice.
  virtual FileStatus ReadScattered(uint64_t offset, const std::vector<ReadSlice>& slices, size_t* bytesRead);
  virtual FileStatus Write(uint64_t offset, const void* data, size_t length, size_t* bytesWritten) = 0;
  // The parts back to back from `offset`, with the results of one Write of
  // their concatenation (a failure may leave any prefix landed). The default
  // writes part by part through Write; a platform may gather them into one
  // system call.
  virtual FileStatus WriteGather(uint64_t offset, const WritePart* parts, size_t count, size_t* bytesWritten);
  virtual FileStatus Size(uint64_t* size) = 0;
  // Sets aside disk room for [offset, offset + length) without changing the
  // file's size, so that writes landing there later do not allocate as they
  // go. A hint: a platform or file system without such a call does nothing
  // and returns Ok (the default); an error (the disk is full) leaves the file
  // as it was. A range that ends past the largest file offset is
  // InvalidArgument everywhere.
  virtual FileStatus Reserve(uint64_t offset, uint64_t length);
  // Hands what the system buffers for this file to the device.
  virtual FileStatus Sync() = 0;

 protected:
  // Reads what `slices` still lack after the first `*bytesRead` bytes, slice
  // by slice, adding to `*bytesRead`; stops at the end of the file.
  FileStatus ReadRemainingSlices(uint64_t offset, const std::vector<ReadSlice>& slices, size_t* bytesRead);
};

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // The platform's file system; lives for the whole process.
  static FileSystem* Default();

  // `flags` is a combination of OpenFlag bits; at least one of read and write.
  virtual FileStatus OpenFile(const std::string& path, uint32_t flags,
                              std::unique_ptr<PositionalFile>* file) = 0;
  // One level; the parent must exist.
  virtual FileStatus CreateDir(const std::string& path) = 0;
  virtual FileStatus RemoveFile(const std::string& path) = 0;
  // Only an empty directory.
  virtual FileStatus RemoveDir(const std::string& path) = 0;
  virtual FileStatus Rename(const std::string& from, const std::string& to) = 0;
  virtual FileStatus GetFileInfo(const std::string& path, FileInfo* info) = 0;
  // Names of the entries of a directory, without "." and "..", in no order.
  virtual FileStatus ListDir(const std::string& path, std::vector<std::string>* names) = 0;

  // Every missing directory along `path` ("/" or "\" separated).
  FileStatus CreateDirs(const std::string& path);

 protected:
  // kInvalidArgument for flags that ask for neither reading nor writing, or
  // for truncation without writing; Ok otherwise.
  static FileStatus CheckOpenFlags(const std::string& path, uint32_t flags);
};

}  // namespace platform
}  // namespace downloader

#endif  // DOWNLOADER_PLATFORM_FILESYSTEM_H_
