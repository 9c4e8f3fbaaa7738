// A file system that passes everything to the real one, except writes that a
// rule picks: those fail, or land only in part, as a full disk or a dying
// device would make them.
#ifndef TESTS_STORAGE_FAULTINJECTIONFILESYSTEM_H_
#define TESTS_STORAGE_FAULTINJECTIONFILESYSTEM_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

#include "ForwardingFileSystem.h"

namespace dltest {

class FaultInjectionFileSystem : public ForwardingFileSystem {
 public:
  // Picks a write by its file offset and length.
  using WriteRule = std::function<bool(uint64_t offset, size_t length)>;
  enum class Fault { kFail, kHalfThenFail };

  void FailWrites(WriteRule rule, Fault fault = Fault::kFail) {
    std::lock_guard<std::mutex> lock(mutex_);
    rule_ = std::move(rule);
    fault_ = fault;
  }
  void Heal() { FailWrites(nullptr); }
  int injectedFaults() const { return injected_.load(); }

 protected:
  FileStatus Write(PositionalFile* file, uint64_t offset, const void* data, size_t length,
                   size_t* bytesWritten) override;

 private:
  std::mutex mutex_;
  // Guarded by mutex_.
  WriteRule rule_;
  Fault fault_ = Fault::kFail;

  std::atomic<int> injected_{0};
};

}  // namespace dltest

#endif  // TESTS_STORAGE_FAULTINJECTIONFILESYSTEM_H_
