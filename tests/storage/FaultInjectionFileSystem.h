// A file system that passes everything to the real one, except writes that a
// rule picks: those fail, or land only in part, as a full disk or a dying
// device would make them.
#ifndef TESTS_STORAGE_FAULTINJECTIONFILESYSTEM_H_
#define TESTS_STORAGE_FAULTINJECTIONFILESYSTEM_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/FileSystem.h"

namespace dltest {

class FaultInjectionFileSystem : public downloader::platform::FileSystem {
 public:
  // Picks a write by its file offset and length.
  using WriteRule = std::function<bool(uint64_t offset, size_t length)>;
  enum class Fault { kFail, kHalfThenFail };

  explicit FaultInjectionFileSystem(downloader::platform::FileSystem* base =
                                        downloader::platform::FileSystem::Default())
      : base_(base) {}

  void FailWrites(WriteRule rule, Fault fault = Fault::kFail) {
    std::lock_guard<std::mutex> lock(mutex_);
    rule_ = std::move(rule);
    fault_ = fault;
  }
  void Heal() { FailWrites(nullptr); }
  int injectedFaults() const { return injected_.load(); }

  downloader::platform::FileStatus OpenFile(const std::string& path, uint32_t flags,
                                            std::unique_ptr<downloader::platform::PositionalFile>* file) override;
  downloader::platform::FileStatus CreateDir(const std::string& path) override { return base_->CreateDir(path); }
  downloader::platform::FileStatus RemoveFile(const std::string& path) override { return base_->RemoveFile(path); }
  downloader::platform::FileStatus RemoveDir(const std::string& path) override { return base_->RemoveDir(path); }
  downloader::platform::FileStatus Rename(const std::string& from, const std::string& to) override {
    return base_->Rename(from, to);
  }
  downloader::platform::FileStatus GetFileInfo(const std::string& path,
                                               downloader::platform::FileInfo* info) override {
    return base_->GetFileInfo(path, info);
  }
  downloader::platform::FileStatus ListDir(const std::string& path, std::vector<std::string>* names) override {
    return base_->ListDir(path, names);
  }

 private:
  friend class FaultyFile;
  // The fault for this write, if the rule picks it.
  bool Picks(uint64_t offset, size_t length, Fault* fault);

  downloader::platform::FileSystem* const base_;
  std::mutex mutex_;
  WriteRule rule_;
  Fault fault_ = Fault::kFail;
  std::atomic<int> injected_{0};
};

}  // namespace dltest

#endif  // TESTS_STORAGE_FAULTINJECTIONFILESYSTEM_H_
