#include "FaultInjectionFileSystem.h"

namespace dltest {

using downloader::platform::FileStatus;
using downloader::platform::PositionalFile;

class FaultyFile : public PositionalFile {
 public:
  FaultyFile(FaultInjectionFileSystem* owner, std::unique_ptr<PositionalFile> base)
      : owner_(owner), base_(std::move(base)) {}

  FileStatus Read(uint64_t offset, size_t length, void* buffer, size_t* bytesRead) override {
    return base_->Read(offset, length, buffer, bytesRead);
  }
  FileStatus Write(uint64_t offset, const void* data, size_t length, size_t* bytesWritten) override {
    FaultInjectionFileSystem::Fault fault;
    if (!owner_->Picks(offset, length, &fault)) return base_->Write(offset, data, length, bytesWritten);
    *bytesWritten = 0;
    if (fault == FaultInjectionFileSystem::Fault::kHalfThenFail && length > 1) {
      FileStatus landed = base_->Write(offset, data, length / 2, bytesWritten);
      if (!landed.ok()) return landed;
    }
    return FileStatus::IoError("injected write fault", 28 /* ENOSPC */);
  }
  FileStatus Size(uint64_t* size) override { return base_->Size(size); }
  FileStatus Sync() override { return base_->Sync(); }

 private:
  FaultInjectionFileSystem* const owner_;
  const std::unique_ptr<PositionalFile> base_;
};

FileStatus FaultInjectionFileSystem::OpenFile(const std::string& path, uint32_t flags,
                                              std::unique_ptr<PositionalFile>* file) {
  std::unique_ptr<PositionalFile> opened;
  FileStatus status = base_->OpenFile(path, flags, &opened);
  if (status.ok()) file->reset(new FaultyFile(this, std::move(opened)));
  return status;
}

bool FaultInjectionFileSystem::Picks(uint64_t offset, size_t length, Fault* fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!rule_ || !rule_(offset, length)) return false;
  *fault = fault_;
  ++injected_;
  return true;
}

}  // namespace dltest
