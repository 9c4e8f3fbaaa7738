// POSIX half of the file seam: pread/preadv/pwrite/pwritev (and Linux's
// fallocate) on descriptors opened with O_CLOEXEC; POSIX files are always
// shareable between readers and writers.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "Platform/FileSystem.h"

namespace downloader {
namespace platform {
namespace {

constexpr uint64_t kMaxOffset = static_cast<uint64_t>(std::numeric_limits<off_t>::max());

FileStatus ErrnoStatus(const std::string& context, int errorNumber) {
  if (errorNumber == ENOENT || errorNumber == ENOTDIR) return FileStatus::NotFound(context, errorNumber);
  if (errorNumber == EEXIST) return FileStatus::AlreadyExists(context, errorNumber);
  return FileStatus::IoError(context, errorNumber);
}

class PosixPositionalFile : public PositionalFile {
 public:
  PosixPositionalFile(std::string path, int fd) : path_(std::move(path)), fd_(fd) {}
  ~PosixPositionalFile() override { close(fd_); }

  FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) override {
    *bytesRead = 0;
    if (offset > kMaxOffset || length > kMaxOffset - offset) return FileStatus::InvalidArgument("pread " + path_);
    auto* out = static_cast<char*>(buffer);
    while (*bytesRead < length) {
      ssize_t got = pread(fd_, out + *bytesRead, length - *bytesRead, static_cast<off_t>(offset + *bytesRead));
      if (got < 0) {
        if (errno == EINTR) continue;
        return ErrnoStatus("pread " + path_, errno);
      }
      if (got == 0) break;  // end of file
      *bytesRead += static_cast<size_t>(got);
    }
    return FileStatus::Ok();
  }

  FileStatus ReadScattered(uint64_t offset, const std::vector<ReadSlice>& slices, size_t* bytesRead) override {
    *bytesRead = 0;
    std::vector<iovec> vectors;
    vectors.reserve(slices.size());
    size_t total = 0;
    for (const ReadSlice& slice : slices) {
      vectors.push_back(iovec{slice.buffer, slice.length});
      total += slice.length;
    }
    if (offset > kMaxOffset || total > kMaxOffset - offset || vectors.size() > static_cast<size_t>(IOV_MAX)) {
      return ReadRemainingSlices(offset, slices, bytesRead);
    }
    ssize_t got;
    do {
      got = preadv(fd_, vectors.data(), static_cast<int>(vectors.size()), static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    if (got < 0) return ErrnoStatus("preadv " + path_, errno);
    *bytesRead = static_cast<size_t>(got);
    if (*bytesRead == total || got == 0) return FileStatus::Ok();
    // A short transfer before the end of the file: the rest as plain reads.
    return ReadRemainingSlices(offset, slices, bytesRead);
  }

  FileStatus Write(uint64_t offset, const void* data, size_t length, size_t* bytesWritten) override {
    *bytesWritten = 0;
    if (offset > kMaxOffset || length > kMaxOffset - offset) return FileStatus::InvalidArgument("pwrite " + path_);
    const auto* in = static_cast<const char*>(data);
    while (*bytesWritten < length) {
      ssize_t put = pwrite(fd_, in + *bytesWritten, length - *bytesWritten,
                           static_cast<off_t>(offset + *bytesWritten));
      if (put < 0) {
        if (errno == EINTR) continue;
        return ErrnoStatus("pwrite " + path_, errno);
      }
      if (put == 0) return FileStatus::IoError("pwrite wrote nothing " + path_, 0);
      *bytesWritten += static_cast<size_t>(put);
    }
    return FileStatus::Ok();
  }

  FileStatus WriteGather(uint64_t offset, const WritePart* parts, size_t count, size_t* bytesWritten) override {
    *bytesWritten = 0;
    std::vector<iovec> pending;
    pending.reserve(count);
    uint64_t length = 0;
    for (size_t index = 0; index < count; ++index) {
      if (parts[index].length > kMaxOffset - length) return FileStatus::InvalidArgument("pwritev " + path_);
      length += parts[index].length;
      pending.push_back(iovec{const_cast<void*>(parts[index].data), parts[index].length});
    }
    if (offset > kMaxOffset || length > kMaxOffset - offset) return FileStatus::InvalidArgument("pwritev " + path_);
    size_t first = 0;
    while (true) {
      while (first < pending.size() && pending[first].iov_len == 0) ++first;
      if (first == pending.size()) return FileStatus::Ok();
      int batch = static_cast<int>(std::min<size_t>(pending.size() - first, IOV_MAX));
      ssize_t put = pwritev(fd_, &pending[first], batch, static_cast<off_t>(offset + *bytesWritten));
      if (put < 0) {
        if (errno == EINTR) continue;
        return ErrnoStatus("pwritev " + path_, errno);
      }
      if (put == 0) return FileStatus::IoError("pwritev wrote nothing " + path_, 0);
      *bytesWritten += static_cast<size_t>(put);
      // The system may take fewer bytes than asked: resume inside the part
      // it stopped in.
      for (size_t landed = static_cast<size_t>(put); landed > 0; ++first) {
        if (landed < pending[first].iov_len) {
          pending[first].iov_base = static_cast<char*>(pending[first].iov_base) + landed;
          pending[first].iov_len -= landed;
          break;
        }
        landed -= pending[first].iov_len;
      }
    }
  }

  // Linux's fallocate with FALLOC_FL_KEEP_SIZE: the blocks are allocated
  // (unwritten, reading as zeros) but the file's length stays what the
  // writes made it, so nothing that judges a file by its length changes.
  FileStatus Reserve(uint64_t offset, uint64_t length) override {
    if (offset > kMaxOffset || length > kMaxOffset - offset) return FileStatus::InvalidArgument("fallocate " + path_);
    int result;
    do {
      result = fallocate(fd_, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset), static_cast<off_t>(length));
    } while (result != 0 && errno == EINTR);
    if (result == 0 || errno == EOPNOTSUPP || errno == ENOSYS) return FileStatus::Ok();
    return ErrnoStatus("fallocate " + path_, errno);
  }

  FileStatus Size(uint64_t* size) override {
    struct stat st;
    if (fstat(fd_, &st) != 0) return ErrnoStatus("fstat " + path_, errno);
    *size = static_cast<uint64_t>(st.st_size);
    return FileStatus::Ok();
  }

  FileStatus Sync() override {
    if (fdatasync(fd_) != 0) return ErrnoStatus("fdatasync " + path_, errno);
    return FileStatus::Ok();
  }

 private:
  // Constant after construction.
  const std::string path_;
  const int fd_;
};

// The descriptor names a regular file; then it blocks again like any other.
FileStatus CheckRegular(const std::string& path, int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0) return ErrnoStatus("fstat " + path, errno);
  if (!S_ISREG(st.st_mode)) return FileStatus::InvalidArgument("not a regular file " + path);
  int statusFlags = fcntl(fd, F_GETFL);
  if (statusFlags < 0 || fcntl(fd, F_SETFL, statusFlags & ~O_NONBLOCK) != 0) return ErrnoStatus("fcntl " + path, errno);
  return FileStatus::Ok();
}

class PosixFileSystem : public FileSystem {
 public:
  FileStatus OpenFile(const std::string& path, uint32_t flags, std::unique_ptr<PositionalFile>* file) override {
    file->reset();
    FileStatus valid = CheckOpenFlags(path, flags);
    if (!valid.ok()) return valid;
    bool read = (flags & kOpenRead) != 0;
    bool write = (flags & kOpenWrite) != 0;
    int mode = read && write ? O_RDWR : (write ? O_WRONLY : O_RDONLY);
    if ((flags & kOpenCreate) != 0) mode |= O_CREAT;
    if ((flags & kOpenTruncate) != 0) mode |= O_TRUNC;
    bool regularOnly = (flags & kOpenRegularOnly) != 0;
    // Without O_NONBLOCK, opening a pipe waits until someone opens its other end.
    if (regularOnly) mode |= O_NONBLOCK;
    int fd;
    do {
      fd = open(path.c_str(), mode | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return ErrnoStatus("open " + path, errno);
    std::unique_ptr<PositionalFile> opened(new PosixPositionalFile(path, fd));
    if (regularOnly) {
      FileStatus regular = CheckRegular(path, fd);
      if (!regular.ok()) return regular;
    }
    *file = std::move(opened);
    return FileStatus::Ok();
  }

  FileStatus CreateDir(const std::string& path) override {
    if (mkdir(path.c_str(), 0755) != 0) return ErrnoStatus("mkdir " + path, errno);
    return FileStatus::Ok();
  }

  FileStatus RemoveFile(const std::string& path) override {
    if (unlink(path.c_str()) != 0) return ErrnoStatus("unlink " + path, errno);
    return FileStatus::Ok();
  }

  FileStatus RemoveDir(const std::string& path) override {
    if (rmdir(path.c_str()) != 0) return ErrnoStatus("rmdir " + path, errno);
    return FileStatus::Ok();
  }

  FileStatus Rename(const std::string& from, const std::string& to) override {
    if (rename(from.c_str(), to.c_str()) != 0) return ErrnoStatus("rename " + from + " to " + to, errno);
    return FileStatus::Ok();
  }

  FileStatus GetFileInfo(const std::string& path, FileInfo* info) override {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return ErrnoStatus("stat " + path, errno);
    info->isDirectory = S_ISDIR(st.st_mode);
    info->size = static_cast<uint64_t>(st.st_size);
    info->modifiedMillis = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000;
    return FileStatus::Ok();
  }

  FileStatus ListDir(const std::string& path, std::vector<std::string>* names) override {
    names->clear();
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) return ErrnoStatus("opendir " + path, errno);
    errno = 0;
    while (struct dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name != "." && name != "..") names->push_back(std::move(name));
    }
    int readError = errno;
    closedir(dir);
    if (readError != 0) return ErrnoStatus("readdir " + path, readError);
    return FileStatus::Ok();
  }
};

}  // namespace

FileSystem* FileSystem::Default() {
  // Never destroyed: storage threads may still use it while the process exits.
  static FileSystem* const fileSystem = new PosixFileSystem();
  return fileSystem;
}

}  // namespace platform
}  // namespace downloader
