#include "Platform/FileSystem.h"

#include <limits>

namespace downloader {
namespace platform {
namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace

FileStatus PositionalFile::ReadScattered(uint64_t offset, const std::vector<ReadSlice>& slices, size_t* bytesRead) {
  *bytesRead = 0;
  return ReadRemainingSlices(offset, slices, bytesRead);
}

FileStatus PositionalFile::ReadRemainingSlices(uint64_t offset, const std::vector<ReadSlice>& slices,
                                               size_t* bytesRead) {
  size_t alreadyThere = *bytesRead;
  for (const ReadSlice& slice : slices) {
    if (alreadyThere >= slice.length) {
      alreadyThere -= slice.length;
      continue;
    }
    size_t wanted = slice.length - alreadyThere;
    size_t got = 0;
    FileStatus status = Read(offset + *bytesRead, wanted, static_cast<char*>(slice.buffer) + alreadyThere, &got);
    *bytesRead += got;
    if (!status.ok() || got < wanted) return status;
    alreadyThere = 0;
  }
  return FileStatus::Ok();
}

FileStatus PositionalFile::WriteGather(uint64_t offset, const WritePart* parts, size_t count,
                                       size_t* bytesWritten) {
  *bytesWritten = 0;
  for (size_t index = 0; index < count; ++index) {
    size_t partWritten = 0;
    FileStatus status = Write(offset + *bytesWritten, parts[index].data, parts[index].length, &partWritten);
    *bytesWritten += partWritten;
    if (!status.ok()) return status;
  }
  return FileStatus::Ok();
}

FileStatus PositionalFile::Reserve(uint64_t offset, uint64_t length) {
  constexpr uint64_t kLargestOffset = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (offset > kLargestOffset || length > kLargestOffset - offset) return FileStatus::InvalidArgument("reserve");
  return FileStatus::Ok();
}

FileStatus FileSystem::CheckOpenFlags(const std::string& path, uint32_t flags) {
  if ((flags & (kOpenRead | kOpenWrite)) == 0) return FileStatus::InvalidArgument("open without read or write " + path);
  if ((flags & kOpenTruncate) != 0 && (flags & kOpenWrite) == 0) {
    return FileStatus::InvalidArgument("truncate read-only " + path);
  }
  return FileStatus::Ok();
}

FileStatus FileSystem::CreateDirs(const std::string& path) {
  FileInfo info;
  FileStatus status = GetFileInfo(path, &info);
  if (status.ok()) {
    return info.isDirectory ? FileStatus::Ok() : FileStatus::AlreadyExists("CreateDirs " + path, 0);
  }
  size_t end = path.size();
  while (end > 0 && IsSeparator(path[end - 1])) --end;
  size_t parentEnd = end;
  while (parentEnd > 0 && !IsSeparator(path[parentEnd - 1])) --parentEnd;
  // A parent is created first unless it is the root ("/", "C:" or "").
  std::string parent = path.substr(0, parentEnd);
  while (!parent.empty() && IsSeparator(parent.back())) parent.pop_back();
  bool parentIsRoot = parent.empty() || (parent.size() == 2 && parent[1] == ':');
  if (!parentIsRoot) {
    status = CreateDirs(parent);
    if (!status.ok()) return status;
  }
  status = CreateDir(path.substr(0, end));
  // Another thread or process may have made it meanwhile.
  if (status.IsAlreadyExists()) return FileStatus::Ok();
  return status;
}

}  // namespace platform
}  // namespace downloader
