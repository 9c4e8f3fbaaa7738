// A host-style reporter for tests: keeps every record it is handed.
// Thread-safe (the library reports from several threads).
#ifndef TESTS_SUPPORT_RECORDINGREPORTER_H_
#define TESTS_SUPPORT_RECORDINGREPORTER_H_

#include <mutex>
#include <string>
#include <vector>

#include <downloader/Pipe/IReporter.h>

namespace dltest {

class RecordingReporter : public protocols::IReporter {
 public:
  struct Record {
    std::string category;
    std::string name;
    std::string text;
  };

  void Report(const std::string& category, const std::string& name, const std::string& text) override {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back({category, name, text});
  }

  std::vector<Record> Records() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
  }
  // The records of that name, oldest first.
  std::vector<Record> Named(const std::string& name) const {
    std::vector<Record> found;
    for (const Record& record : Records()) {
      if (record.name == name) found.push_back(record);
    }
    return found;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Record> records_;
};

}  // namespace dltest

#endif  // TESTS_SUPPORT_RECORDINGREPORTER_H_
