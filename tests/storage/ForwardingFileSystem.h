// A file system that hands every call to another one, and lets a subclass
// step into the writes and reservations of the files it opens (to fail them,
// to die in them, or to watch them). Gathered writes reach `Write` part by part (the seam's default), so
// a subclass sees each part, such as a chunk's checksum, on its own.
#ifndef TESTS_STORAGE_FORWARDINGFILESYSTEM_H_
#define TESTS_STORAGE_FORWARDINGFILESYSTEM_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/FileSystem.h"

namespace dltest {

class ForwardingFileSystem : public downloader::platform::FileSystem {
 public:
  using FileStatus = downloader::platform::FileStatus;
  using PositionalFile = downloader::platform::PositionalFile;

  explicit ForwardingFileSystem(FileSystem* base = FileSystem::Default()) : base_(base) {}

  FileStatus OpenFile(const std::string& path, uint32_t flags, std::unique_ptr<PositionalFile>* file) override {
    std::unique_ptr<PositionalFile> opened;
    FileStatus status = base_->OpenFile(path, flags, &opened);
    if (status.ok()) file->reset(new ForwardingFile(this, std::move(opened)));
    return status;
  }
  FileStatus CreateDir(const std::string& path) override { return base_->CreateDir(path); }
  FileStatus RemoveFile(const std::string& path) override { return base_->RemoveFile(path); }
  FileStatus RemoveDir(const std::string& path) override { return base_->RemoveDir(path); }
  FileStatus Rename(const std::string& from, const std::string& to) override { return base_->Rename(from, to); }
  FileStatus GetFileInfo(const std::string& path, downloader::platform::FileInfo* info) override {
    return base_->GetFileInfo(path, info);
  }
  FileStatus ListDir(const std::string& path, std::vector<std::string>* names) override {
    return base_->ListDir(path, names);
  }

 protected:
  // Every write to a file opened here; `file` is the real one.
  virtual FileStatus Write(PositionalFile* file, uint64_t offset, const void* data, size_t length,
                           size_t* bytesWritten) {
    return file->Write(offset, data, length, bytesWritten);
  }
  virtual FileStatus Reserve(PositionalFile* file, uint64_t offset, uint64_t length) {
    return file->Reserve(offset, length);
  }

 private:
  class ForwardingFile : public PositionalFile {
   public:
    ForwardingFile(ForwardingFileSystem* owner, std::unique_ptr<PositionalFile> base)
        : owner_(owner), base_(std::move(base)) {}
    FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) override {
      return base_->Read(offset, length, buffer, bytesRead);
    }
    FileStatus Write(uint64_t offset, const void* data, size_t length, size_t* bytesWritten) override {
      return owner_->Write(base_.get(), offset, data, length, bytesWritten);
    }
    FileStatus Reserve(uint64_t offset, uint64_t length) override { return owner_->Reserve(base_.get(), offset, length); }
    FileStatus Size(uint64_t* size) override { return base_->Size(size); }
    FileStatus Sync() override { return base_->Sync(); }

   private:
    ForwardingFileSystem* const owner_;
    const std::unique_ptr<PositionalFile> base_;
  };

  FileSystem* const base_;
};

}  // namespace dltest

#endif  // TESTS_STORAGE_FORWARDINGFILESYSTEM_H_
