#include "FaultInjectionFileSystem.h"

namespace dltest {

downloader::platform::FileStatus FaultInjectionFileSystem::Write(PositionalFile* file, uint64_t offset,
                                                                 const void* data, size_t length,
                                                                 size_t* bytesWritten) {
  Fault fault;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!rule_ || !rule_(offset, length)) return file->Write(offset, data, length, bytesWritten);
    fault = fault_;
  }
  ++injected_;
  *bytesWritten = 0;
  if (fault == Fault::kHalfThenFail && length > 1) {
    FileStatus landed = file->Write(offset, data, length / 2, bytesWritten);
    if (!landed.ok()) return landed;
  }
  return FileStatus::IoError("injected write fault", 28 /* ENOSPC */);
}

}  // namespace dltest
