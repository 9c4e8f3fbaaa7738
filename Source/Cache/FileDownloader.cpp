#include <downloader/Cache/FileDownloader.h>
#include <wisp/Mutex.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <utility>

#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr int32_t kFirstIdentity = 1000;
constexpr int32_t kErrorsBeforeSpeaking = 1;
constexpr int32_t kDidNotCount = -1;
constexpr int kPlainProgress = 0;
constexpr int kSizeBufferBytes = 20;
constexpr int kProgressBufferBytes = 10;
constexpr int kSpeedBufferBytes = 20;

std::atomic<int32_t> g_nextIdentity{kFirstIdentity};

// Which of a set's three countdowns a step moves.
enum class Countdown { kTasks, kCloses, kErrors };

// The process-wide preload registry.
class PreloadRegistry {
 public:
  static PreloadRegistry& Instance() {
    static PreloadRegistry* registry = new PreloadRegistry();
    return *registry;
  }

  void SetCallback(FileDownloader::PreloadCallback callback) {
    wisp::MutexLock lock(&mutex_);
    callback_ = std::move(callback);
  }

  FileDownloader::PreloadCallback Callback() {
    wisp::MutexLock lock(&mutex_);
    return callback_;
  }

  void AddDownload(int64_t downloadId, int32_t identity) {
    wisp::MutexLock lock(&mutex_);
    identities_[downloadId] = identity;
  }

  bool FindIdentity(int64_t downloadId, int32_t* identity) {
    wisp::MutexLock lock(&mutex_);
    auto found = identities_.find(downloadId);
    if (found == identities_.end()) return false;
    *identity = found->second;
    return true;
  }

  void SetCountdowns(int32_t identity, int32_t count) {
    wisp::MutexLock lock(&mutex_);
    tasksLeft_[identity] = count;
    closesLeft_[identity] = count;
    errorsLeft_[identity] = kErrorsBeforeSpeaking;
  }

  int32_t Step(Countdown which, int32_t identity) {
    wisp::MutexLock lock(&mutex_);
    std::map<int32_t, int32_t>& counters = CountersOf(which);
    auto found = counters.find(identity);
    if (found == counters.end()) return kDidNotCount;
    const bool isErrors = which == Countdown::kErrors;
    DL_LOGD << (isErrors ? "count error:" : "count:") << found->second;
    int32_t next = found->second - 1;
    if (next >= 0) {
      found->second = next;
      DL_LOGD << (isErrors ? "count error updated:" : "count updated:") << next;
    }
    return next;
  }

 private:
  std::map<int32_t, int32_t>& CountersOf(Countdown which) {
    switch (which) {
      case Countdown::kTasks:
        return tasksLeft_;
      case Countdown::kCloses:
        return closesLeft_;
      case Countdown::kErrors:
        break;
    }
    return errorsLeft_;
  }

  wisp::Mutex mutex_;
  FileDownloader::PreloadCallback callback_ GUARDED_BY(mutex_);
  std::map<int64_t, int32_t> identities_ GUARDED_BY(mutex_);
  std::map<int32_t, int32_t> tasksLeft_ GUARDED_BY(mutex_);
  std::map<int32_t, int32_t> closesLeft_ GUARDED_BY(mutex_);
  std::map<int32_t, int32_t> errorsLeft_ GUARDED_BY(mutex_);
};

// The two figures of a multi-source speed answer "A_B"; an answer without
// "_" reads as "0_0".
std::pair<float, float> SplitSpeeds(const std::string& answer) {
  size_t separator = answer.find('_');
  if (separator == std::string::npos) return {0.0f, 0.0f};
  return {std::strtof(answer.substr(0, separator).c_str(), nullptr),
          std::strtof(answer.substr(separator + 1).c_str(), nullptr)};
}

void AddIfNotNegative(float value, float* sum) {
  if (value >= 0.0f) *sum += value;
}

}  // namespace

FileDownloader::FileDownloader(std::vector<Task> tasks, DownloadCall downloadCall)
    : tasks_(std::move(tasks)), downloadCall_(downloadCall) {}

FileDownloader::~FileDownloader() = default;

void FileDownloader::Start() {
  const int64_t taskCount = static_cast<int64_t>(tasks_.size());
  DL_LOGI << "task size:" << taskCount;
  if (taskCount == 0) return;
  identity_ = g_nextIdentity.fetch_add(1);
  downloadIds_.assign(tasks_.size(), 0);
  AddTaskCountDown(identity_, static_cast<int32_t>(taskCount));
  DL_LOGI << "add task count down invoke";
  for (size_t index = 0; index < tasks_.size(); ++index) {
    const Task& task = tasks_[index];
    DL_LOGI << "pcdn download called with url:" << task.url << ", flag:" << task.flags;
    int64_t downloadId = downloadCall_(task.url.c_str(), task.savePath.c_str(), task.params.c_str(),
                                       static_cast<int>(task.flags), &FileDownloader::PcdnNotifier);
    downloadIds_[index] = downloadId;
    if (downloadId < 1) return;
    PreloadRegistry::Instance().AddDownload(downloadId, identity_);
  }
}

int FileDownloader::Close() {
  if (downloadIds_.empty()) return -1;
  for (size_t index = 0; index < downloadIds_.size(); ++index) {
    int result = PcdnInterfaceHelper::dlPCDNClose(downloadIds_[index]);
    DL_LOGI << "pcdn close index:" << index << ", result:" << result;
  }
  return 0;
}

bool FileDownloader::AskEngine(const char* key, int64_t downloadId, int bufferSize, std::string* answer) {
  std::string idText = std::to_string(downloadId);
  std::vector<char> buffer(static_cast<size_t>(bufferSize), '\0');
  const char* reply = PcdnInterfaceHelper::dlPCDNGetByKV(key, idText.c_str(), buffer.data(), bufferSize);
  if (reply == nullptr) return false;
  *answer = reply;
  return true;
}

int64_t FileDownloader::GetTotalSize() {
  int64_t total = 0;
  for (int64_t downloadId : downloadIds_) {
    std::string answer;
    if (!AskEngine("itf-total-size", downloadId, kSizeBufferBytes, &answer)) continue;
    int64_t size = std::strtoll(answer.c_str(), nullptr, 10);
    if (size >= 0) total += size;
  }
  return total;
}

float FileDownloader::GetProgress() {
  float sum = 0.0f;
  float counted = 0.0f;
  for (size_t index = 0; index < downloadIds_.size(); ++index) {
    std::string answer;
    if (!AskEngine("itf-progress", downloadIds_[index], kProgressBufferBytes, &answer)) continue;
    float progress = std::strtof(answer.c_str(), nullptr);
    DL_LOGD << "get progress index:" << index << ", result:" << progress;
    if (progress >= 0.0f) {
      sum += progress;
      counted += 1.0f;
    }
  }
  return sum / counted;
}

void FileDownloader::GetSpeed(float speeds[2]) {
  speeds[0] = 0.0f;
  speeds[1] = 0.0f;
  for (size_t index = 0; index < downloadIds_.size() && index < tasks_.size(); ++index) {
    const bool multiSource = (tasks_[index].flags & kMultiSourceFlag) != 0;
    std::string answer;
    if (!AskEngine(multiSource ? "itf-dwn-multi-speed" : "itf-dwn-speed", downloadIds_[index], kSpeedBufferBytes,
                   &answer)) {
      continue;
    }
    if (multiSource) {
      std::pair<float, float> figures = SplitSpeeds(answer);
      AddIfNotNegative(figures.first, &speeds[0]);
      AddIfNotNegative(figures.second, &speeds[1]);
    } else {
      AddIfNotNegative(std::strtof(answer.c_str(), nullptr), &speeds[0]);
    }
    DL_LOGD << "get speed called index:" << index << "with speed, original:" << speeds[0] << "," << speeds[1];
  }
}

void FileDownloader::SetPreloadCallback(PreloadCallback callback) {
  PreloadRegistry::Instance().SetCallback(std::move(callback));
}

int FileDownloader::PcdnNotifier(int64_t id, int index, int type, int resultCode, const char* extendInfo) {
  const char* info = extendInfo == nullptr ? "" : extendInfo;
  DL_LOGI << "pcdn callback with did:" << id << ", index:" << index << ", type:" << type
          << ", resultCode:" << resultCode << ", extendInfo:" << info;
  PreloadRegistry& registry = PreloadRegistry::Instance();
  PreloadCallback callback = registry.Callback();
  if (!callback) return 0;
  int32_t identity = kNoIdentity;
  if (!registry.FindIdentity(id, &identity)) return 0;
  DL_LOGI << "download identity found:" << identity << " with did:" << id;

  int32_t tasksLeft = kDidNotCount;
  int32_t closesLeft = kDidNotCount;
  int32_t errorsLeft = kDidNotCount;
  if (resultCode == kFileFinished) {
    tasksLeft = CountDownTask(identity);
  } else if (resultCode == kDownloadClosed) {
    closesLeft = CountDownTaskClose(identity);
  } else if (resultCode != kPlainProgress) {
    errorsLeft = CountDownError(identity);
  }
  DL_LOGI << "countdownTask:" << tasksLeft << ", countdownError:" << errorsLeft;
  const bool silent = tasksLeft != 0 && errorsLeft == kDidNotCount && closesLeft != 0 && resultCode != kPlainProgress;
  if (!silent) callback(identity, index, type, resultCode, info);
  return 0;
}

void FileDownloader::AddTaskCountDown(int32_t identity, int32_t count) {
  PreloadRegistry::Instance().SetCountdowns(identity, count);
  DL_LOGI << "add task count down:" << identity << ", taskCount:" << count;
}

int32_t FileDownloader::CountDownTask(int32_t identity) {
  return PreloadRegistry::Instance().Step(Countdown::kTasks, identity);
}

int32_t FileDownloader::CountDownError(int32_t identity) {
  return PreloadRegistry::Instance().Step(Countdown::kErrors, identity);
}

int32_t FileDownloader::CountDownTaskClose(int32_t identity) {
  return PreloadRegistry::Instance().Step(Countdown::kCloses, identity);
}

}  // namespace downloader
