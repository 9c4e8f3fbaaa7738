// Windows half of the file seam: KERNEL32 file handles opened with read, write
// and delete sharing, so that the cache writer, its readers and the cleaner
// can hold one file at once (as POSIX allows by default), and positional
// transfers through an OVERLAPPED offset on synchronous handles.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "Platform/FileSystem.h"

namespace downloader {
namespace platform {
namespace {

constexpr uint64_t kMaxOffset = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
// ReadFile and WriteFile take a DWORD count; larger transfers go in pieces.
constexpr size_t kMaxTransfer = 1u << 30;
// 100 ns ticks between 1601-01-01 and 1970-01-01.
constexpr uint64_t kFileTimeUnixEpoch = 116444736000000000ull;

std::wstring ToWide(const std::string& utf8) {
  if (utf8.empty()) return std::wstring();
  int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), static_cast<int>(utf8.size()),
                                   nullptr, 0);
  if (length <= 0) return std::wstring();
  std::wstring wide(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), static_cast<int>(utf8.size()), &wide[0],
                      length);
  return wide;
}

std::string ToUtf8(const wchar_t* wide) {
  int length = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  if (length <= 1) return std::string();
  std::string utf8(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, &utf8[0], length, nullptr, nullptr);
  utf8.resize(static_cast<size_t>(length - 1));  // drop the terminating zero
  return utf8;
}

FileStatus ErrorStatus(const std::string& context, DWORD error) {
  int number = static_cast<int>(error);
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return FileStatus::NotFound(context, number);
  if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) {
    return FileStatus::AlreadyExists(context, number);
  }
  return FileStatus::IoError(context, number);
}

// An empty wide path means the UTF-8 text was empty or malformed.
bool ConvertPath(const std::string& path, std::wstring* wide) {
  *wide = ToWide(path);
  return !wide->empty();
}

OVERLAPPED OffsetOf(uint64_t offset) {
  OVERLAPPED overlapped = {};
  overlapped.Offset = static_cast<DWORD>(offset & 0xFFFFFFFFu);
  overlapped.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return overlapped;
}

class WindowsPositionalFile : public PositionalFile {
 public:
  WindowsPositionalFile(std::string path, HANDLE handle) : path_(std::move(path)), handle_(handle) {}
  ~WindowsPositionalFile() override { CloseHandle(handle_); }

  FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) override {
    *bytesRead = 0;
    if (offset > kMaxOffset || length > kMaxOffset - offset) return FileStatus::InvalidArgument("ReadFile " + path_);
    auto* out = static_cast<char*>(buffer);
    while (*bytesRead < length) {
      DWORD piece = static_cast<DWORD>(std::min(length - *bytesRead, kMaxTransfer));
      OVERLAPPED at = OffsetOf(offset + *bytesRead);
      DWORD got = 0;
      if (!ReadFile(handle_, out + *bytesRead, piece, &got, &at)) {
        DWORD error = GetLastError();
        if (error == ERROR_HANDLE_EOF) break;
        return ErrorStatus("ReadFile " + path_, error);
      }
      if (got == 0) break;  // end of file
      *bytesRead += got;
    }
    return FileStatus::Ok();
  }

  FileStatus Write(uint64_t offset, const void* data, size_t length, size_t* bytesWritten) override {
    *bytesWritten = 0;
    if (offset > kMaxOffset || length > kMaxOffset - offset) {
      return FileStatus::InvalidArgument("WriteFile " + path_);
    }
    const auto* in = static_cast<const char*>(data);
    while (*bytesWritten < length) {
      DWORD piece = static_cast<DWORD>(std::min(length - *bytesWritten, kMaxTransfer));
      OVERLAPPED at = OffsetOf(offset + *bytesWritten);
      DWORD put = 0;
      if (!WriteFile(handle_, in + *bytesWritten, piece, &put, &at)) {
        return ErrorStatus("WriteFile " + path_, GetLastError());
      }
      if (put == 0) return FileStatus::IoError("WriteFile wrote nothing " + path_, 0);
      *bytesWritten += put;
    }
    return FileStatus::Ok();
  }

  FileStatus Size(uint64_t* size) override {
    LARGE_INTEGER value;
    if (!GetFileSizeEx(handle_, &value)) return ErrorStatus("GetFileSizeEx " + path_, GetLastError());
    *size = static_cast<uint64_t>(value.QuadPart);
    return FileStatus::Ok();
  }

  FileStatus Sync() override {
    if (!FlushFileBuffers(handle_)) return ErrorStatus("FlushFileBuffers " + path_, GetLastError());
    return FileStatus::Ok();
  }

 private:
  // Constant after construction.
  const std::string path_;
  const HANDLE handle_;
};

DWORD CreationDisposition(uint32_t flags) {
  bool create = (flags & kOpenCreate) != 0;
  bool truncate = (flags & kOpenTruncate) != 0;
  if (create && truncate) return CREATE_ALWAYS;
  if (create) return OPEN_ALWAYS;
  if (truncate) return TRUNCATE_EXISTING;
  return OPEN_EXISTING;
}

// A disk file that is not a directory: not a console, a pipe or a device.
FileStatus CheckRegular(const std::string& path, HANDLE handle) {
  if (GetFileType(handle) != FILE_TYPE_DISK) return FileStatus::InvalidArgument("not a regular file " + path);
  BY_HANDLE_FILE_INFORMATION information;
  if (!GetFileInformationByHandle(handle, &information)) {
    return ErrorStatus("GetFileInformationByHandle " + path, GetLastError());
  }
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return FileStatus::InvalidArgument("not a regular file " + path);
  }
  return FileStatus::Ok();
}

class WindowsFileSystem : public FileSystem {
 public:
  FileStatus OpenFile(const std::string& path, uint32_t flags, std::unique_ptr<PositionalFile>* file) override {
    file->reset();
    FileStatus valid = CheckOpenFlags(path, flags);
    if (!valid.ok()) return valid;
    bool read = (flags & kOpenRead) != 0;
    bool write = (flags & kOpenWrite) != 0;
    std::wstring wide;
    if (!ConvertPath(path, &wide)) return FileStatus::InvalidArgument("path not UTF-8 " + path);
    DWORD access = (read ? GENERIC_READ : 0) | (write ? GENERIC_WRITE : 0);
    HANDLE handle = CreateFileW(wide.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, CreationDisposition(flags), FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return ErrorStatus("CreateFileW " + path, GetLastError());
    std::unique_ptr<PositionalFile> opened(new WindowsPositionalFile(path, handle));
    if ((flags & kOpenRegularOnly) != 0) {
      FileStatus regular = CheckRegular(path, handle);
      if (!regular.ok()) return regular;
    }
    *file = std::move(opened);
    return FileStatus::Ok();
  }

  FileStatus CreateDir(const std::string& path) override {
    std::wstring wide;
    if (!ConvertPath(path, &wide)) return FileStatus::InvalidArgument("path not UTF-8 " + path);
    if (!CreateDirectoryW(wide.c_str(), nullptr)) return ErrorStatus("CreateDirectoryW " + path, GetLastError());
    return FileStatus::Ok();
  }

  FileStatus RemoveFile(const std::string& path) override {
    std::wstring wide;
    if (!ConvertPath(path, &wide)) return FileStatus::InvalidArgument("path not UTF-8 " + path);
    if (!DeleteFileW(wide.c_str())) return ErrorStatus("DeleteFileW " + path, GetLastError());
    return FileStatus::Ok();
  }

  FileStatus RemoveDir(const std::string& path) override {
    std::wstring wide;
    if (!ConvertPath(path, &wide)) return FileStatus::InvalidArgument("path not UTF-8 " + path);
    if (!RemoveDirectoryW(wide.c_str())) return ErrorStatus("RemoveDirectoryW " + path, GetLastError());
    return FileStatus::Ok();
  }

  FileStatus Rename(const std::string& from, const std::string& to) override {
    std::wstring wideFrom;
    std::wstring wideTo;
    if (!ConvertPath(from, &wideFrom) || !ConvertPath(to, &wideTo)) {
      return FileStatus::InvalidArgument("path not UTF-8 " + from + " or " + to);
    }
    if (!MoveFileExW(wideFrom.c_str(), wideTo.c_str(), MOVEFILE_REPLACE_EXISTING)) {
      return ErrorStatus("MoveFileExW " + from + " to " + to, GetLastError());
    }
    return FileStatus::Ok();
  }

  FileStatus GetFileInfo(const std::string& path, FileInfo* info) override {
    std::wstring wide;
    if (!ConvertPath(path, &wide)) return FileStatus::InvalidArgument("path not UTF-8 " + path);
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data)) {
      return ErrorStatus("GetFileAttributesExW " + path, GetLastError());
    }
    info->isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info->size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    uint64_t ticks = (static_cast<uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32) |
                     data.ftLastWriteTime.dwLowDateTime;
    info->modifiedMillis = ticks > kFileTimeUnixEpoch ? static_cast<int64_t>((ticks - kFileTimeUnixEpoch) / 10000) : 0;
    return FileStatus::Ok();
  }

  FileStatus ListDir(const std::string& path, std::vector<std::string>* names) override {
    names->clear();
    std::wstring wide;
    if (!ConvertPath(path, &wide)) return FileStatus::InvalidArgument("path not UTF-8 " + path);
    WIN32_FIND_DATAW entry;
    HANDLE find = FindFirstFileW((wide + L"\\*").c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE) return ErrorStatus("FindFirstFileW " + path, GetLastError());
    do {
      std::string name = ToUtf8(entry.cFileName);
      if (name != "." && name != "..") names->push_back(std::move(name));
    } while (FindNextFileW(find, &entry));
    DWORD error = GetLastError();
    FindClose(find);
    if (error != ERROR_NO_MORE_FILES) return ErrorStatus("FindNextFileW " + path, error);
    return FileStatus::Ok();
  }
};

}  // namespace

FileSystem* FileSystem::Default() {
  // Never destroyed: storage threads may still use it while the process exits.
  static FileSystem* const fileSystem = new WindowsFileSystem();
  return fileSystem;
}

}  // namespace platform
}  // namespace downloader
