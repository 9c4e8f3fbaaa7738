#include "engines/FakePcdnEngine.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Stream/PcdnReadEvent.h"

namespace fake_engine {
namespace {

constexpr int64_t kDefaultPieceSize = 65536;
constexpr int kDefaultFailCode = -1001;
constexpr int kMissingFileCode = -404;
constexpr int kRangeNotSatisfiableCode = -416;
constexpr int kTraceInfoLevel = 2;

// One read in flight on a download: its thread and the flag that ends it.
struct Delivery {
  std::thread thread;
  std::atomic<bool> stop{false};
  // Data callbacks still owed after the download was closed.
  std::atomic<int64_t> lateCallbacks{0};
};

struct ReadPlan {
  int64_t id;
  std::string path;
  int64_t rangeStart;
  int64_t rangeEnd;
  int64_t pieceSize;
  int64_t failAfter;
  int failCode;
  int64_t stallAfter;
  PCDNReadCallback callback;
};

// The engine's whole state. Allocated once and never destroyed, so that no
// delivery thread is joined while the module unloads.
class Engine {
 public:
  int64_t Open() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (failOpens_ > 0) {
      --failOpens_;
      return -1;
    }
    int64_t id = nextId_++;
    open_[id] = nullptr;
    return id;
  }

  int Read(int64_t id, const char* url, int64_t rangeStart, int64_t rangeEnd, PCDNReadCallback callback) {
    std::unique_lock<std::mutex> lock(mutex_);
    lastReadUrl_ = url == nullptr ? "" : url;
    auto found = open_.find(id);
    if (found == open_.end()) return -1;
    std::shared_ptr<Delivery> previous = std::move(found->second);
    ReadPlan plan{id, root_ + PathOf(lastReadUrl_), rangeStart, rangeEnd, pieceSize_, failAfter_, failCode_,
                  stallAfter_, callback};
    auto delivery = std::make_shared<Delivery>();
    found->second = delivery;
    int result = readResult_;
    lock.unlock();
    Finish(previous);
    delivery->thread = std::thread([this, plan, delivery] { Deliver(plan, *delivery); });
    return result;
  }

  int Close(int64_t id) {
    std::shared_ptr<Delivery> delivery;
    int64_t lateCallbacks = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      auto found = open_.find(id);
      if (found == open_.end()) return -1;
      delivery = std::move(found->second);
      open_.erase(found);
      lateCallbacks = lateCallbacks_;
      if (delivery && lateCallbacks > 0) lingering_.push_back(delivery);
    }
    if (delivery && lateCallbacks > 0) {
      delivery->lateCallbacks = lateCallbacks;
      Wake(delivery);
    } else {
      Finish(delivery);
    }
    return 0;
  }

  int Set(const std::string& key, const std::string& value) {
    if (key == "fake-reset") {
      std::vector<std::shared_ptr<Delivery>> lingering;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        ResetLocked();
        lingering.swap(lingering_);
        // Downloads never closed (an engine without PCDNClose) end here too,
        // so that no delivery thread outlives the test unjoined.
        for (const auto& entry : open_) {
          if (entry.second) lingering.push_back(entry.second);
        }
        open_.clear();
      }
      // Outside the lock: a late callback may call into the engine.
      for (const std::shared_ptr<Delivery>& delivery : lingering) Finish(delivery);
      return 0;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (key == "fake-root") {
      root_ = value;
    } else if (key == "fake-piece-size") {
      pieceSize_ = std::max<int64_t>(1, std::atoll(value.c_str()));
    } else if (key == "fake-fail-open") {
      failOpens_ = std::atoi(value.c_str());
    } else if (key == "fake-fail-after") {
      failAfter_ = std::atoll(value.c_str());
    } else if (key == "fake-fail-code") {
      failCode_ = std::atoi(value.c_str());
    } else if (key == "fake-stall-after") {
      stallAfter_ = std::atoll(value.c_str());
    } else if (key == "fake-read-result") {
      readResult_ = std::atoi(value.c_str());
    } else if (key == "fake-late-callbacks") {
      lateCallbacks_ = std::atoll(value.c_str());
    } else if (key.compare(0, kReplyPrefix.size(), kReplyPrefix) == 0) {
      replies_[key.substr(kReplyPrefix.size())] = value;
    }
    return 0;
  }

  // The scripted reply for key (and argument), or false.
  bool Reply(const std::string& key, const char* argument, std::string* answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (argument != nullptr) {
      auto specific = replies_.find(key + ":" + argument);
      if (specific != replies_.end()) {
        *answer = specific->second;
        return true;
      }
    }
    auto general = replies_.find(key);
    if (general == replies_.end()) return false;
    *answer = general->second;
    return true;
  }

  bool Query(const std::string& key, std::string* answer) {
    if (Reply(key, nullptr, answer)) return true;
    std::lock_guard<std::mutex> lock(mutex_);
    if (key == "total-download-details-bytes-vod") {
      *answer = "{\"total\":" + std::to_string(bytesDelivered_.load()) + "}";
    } else if (key == "fake-last-read-url") {
      *answer = lastReadUrl_;
    } else if (key == "fake-last-meta") {
      *answer = lastMeta_;
    } else if (key == "fake-late-callbacks-made") {
      *answer = std::to_string(lateCallbacksMade_.load());
    } else if (key == "fake-stalled") {
      *answer = std::to_string(stalledNow_.load());
    } else if (key.compare(0, kCallsPrefix.size(), kCallsPrefix) == 0) {
      *answer = std::to_string(calls_[key.substr(kCallsPrefix.size())]);
    } else {
      return false;
    }
    return true;
  }

  void CountCall(const char* name) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++calls_[name];
  }

  void RecordMeta(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    lastMeta_ = line;
  }

 private:
  static const std::string kReplyPrefix;
  static const std::string kCallsPrefix;

  static std::string PathOf(const std::string& url) {
    size_t scheme = url.find("://");
    size_t pathStart = scheme == std::string::npos ? 0 : url.find('/', scheme + 3);
    if (pathStart == std::string::npos) return "/";
    size_t query = url.find('?', pathStart);
    return url.substr(pathStart, query == std::string::npos ? std::string::npos : query - pathStart);
  }

  // Stops a delivery and wakes it if it stalls.
  static void Wake(const std::shared_ptr<Delivery>& delivery) {
    delivery->stop = true;
    {
      std::lock_guard<std::mutex> lock(Instance().stallMutex_);
    }
    Instance().stallWake_.notify_all();
  }

  // Stops a delivery and waits for its thread.
  static void Finish(const std::shared_ptr<Delivery>& delivery) {
    if (!delivery) return;
    Wake(delivery);
    if (delivery->thread.joinable()) delivery->thread.join();
  }

  // False once a delivery is to end: when its download was closed and it
  // owes no late callback.
  static bool GoesOn(Delivery& delivery) {
    return !delivery.stop || delivery.lateCallbacks.fetch_sub(1) > 0;
  }

  void Deliver(const ReadPlan& plan, Delivery& delivery) {
    std::ifstream file(plan.path, std::ios::binary);
    if (!file) {
      plan.callback(plan.id, plan.rangeStart, downloader::kPcdnReadError, nullptr, 0, 0, kMissingFileCode,
                    "no such file");
      return;
    }
    file.seekg(0, std::ios::end);
    const int64_t total = static_cast<int64_t>(file.tellg());
    int64_t last = plan.rangeEnd < 0 ? total - 1 : std::min(plan.rangeEnd, total - 1);
    if (plan.rangeStart < 0 || plan.rangeStart >= total || last < plan.rangeStart) {
      plan.callback(plan.id, plan.rangeStart, downloader::kPcdnReadError, nullptr, 0, total,
                    kRangeNotSatisfiableCode, "range not satisfiable");
      return;
    }
    file.seekg(plan.rangeStart);
    std::vector<char> piece(static_cast<size_t>(plan.pieceSize));
    int64_t offset = plan.rangeStart;
    int64_t sent = 0;
    bool stalled = false;
    while (offset <= last && GoesOn(delivery)) {
      if (!stalled && plan.stallAfter >= 0 && sent >= plan.stallAfter) {
        Stall(delivery);
        // Closed: a download that owes late callbacks makes them now.
        stalled = true;
        continue;
      }
      if (plan.failAfter >= 0 && sent >= plan.failAfter) {
        plan.callback(plan.id, offset, downloader::kPcdnReadError, nullptr, 0, total, plan.failCode,
                      "scripted failure");
        return;
      }
      int64_t want = std::min(plan.pieceSize, last + 1 - offset);
      if (!stalled && plan.stallAfter >= 0) want = std::min(want, plan.stallAfter - sent);
      if (plan.failAfter >= 0) want = std::min(want, plan.failAfter - sent);
      file.read(piece.data(), want);
      bytesDelivered_ += want;
      if (delivery.stop) ++lateCallbacksMade_;
      if (plan.callback(plan.id, offset, downloader::kPcdnReadData, piece.data(), want, total, 0, "") != 0) return;
      offset += want;
      sent += want;
    }
    if (!delivery.stop) plan.callback(plan.id, offset, downloader::kPcdnReadDone, nullptr, 0, total, 0, "");
  }

  void Stall(Delivery& delivery) {
    std::unique_lock<std::mutex> lock(stallMutex_);
    ++stalledNow_;
    stallWake_.wait(lock, [&delivery] { return delivery.stop.load(); });
    --stalledNow_;
  }

  void ResetLocked() {
    root_.clear();
    pieceSize_ = kDefaultPieceSize;
    failOpens_ = 0;
    failAfter_ = -1;
    failCode_ = kDefaultFailCode;
    stallAfter_ = -1;
    readResult_ = 0;
    lateCallbacks_ = 0;
    replies_.clear();
  }

 public:
  static Engine& Instance() {
    static Engine* engine = new Engine();
    return *engine;
  }

 private:
  std::mutex mutex_;
  // Guarded by mutex_.
  int64_t nextId_ = 1;
  std::map<int64_t, std::shared_ptr<Delivery>> open_;
  std::string root_;
  int64_t pieceSize_ = kDefaultPieceSize;
  int failOpens_ = 0;
  int64_t failAfter_ = -1;
  int failCode_ = kDefaultFailCode;
  int64_t stallAfter_ = -1;
  int readResult_ = 0;
  int64_t lateCallbacks_ = 0;
  // Closed downloads still making late callbacks; joined at "fake-reset".
  std::vector<std::shared_ptr<Delivery>> lingering_;
  std::map<std::string, std::string> replies_;
  std::map<std::string, int> calls_;
  std::string lastReadUrl_;
  std::string lastMeta_;

  std::atomic<int64_t> bytesDelivered_{0};
  std::atomic<int64_t> lateCallbacksMade_{0};
  std::atomic<int64_t> stalledNow_{0};

  // Stalled deliveries wait here until their download is closed.
  std::mutex stallMutex_;
  std::condition_variable stallWake_;
};

const std::string Engine::kReplyPrefix = "fake-reply:";
const std::string Engine::kCallsPrefix = "fake-calls:";

}  // namespace

void CountCall(const char* name) { Engine::Instance().CountCall(name); }

void RecordMeta(const char* line) { Engine::Instance().RecordMeta(line); }

const char* Answer(const std::string& answer, char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return nullptr;
  size_t length = std::min(answer.size(), static_cast<size_t>(size) - 1);
  std::memcpy(buffer, answer.data(), length);
  buffer[length] = '\0';
  return buffer;
}

}  // namespace fake_engine

using fake_engine::Answer;
using fake_engine::CountCall;
using fake_engine::Engine;

extern "C" {

int64_t PCDNOpen(const char* /*resource*/, int /*mode*/, const char* /*params*/) {
  CountCall("PCDNOpen");
  return Engine::Instance().Open();
}

int PCDNRead(int64_t id, int /*mode*/, const char* url, int64_t rangeStart, int64_t rangeEnd,
             const char* /*params*/, PCDNReadCallback callback) {
  CountCall("PCDNRead");
  return Engine::Instance().Read(id, url, rangeStart, rangeEnd, callback);
}

const char* PCDNGet(const char* key, char* buffer, int size) {
  CountCall("PCDNGet");
  std::string answer;
  if (key == nullptr || !Engine::Instance().Query(key, &answer)) return nullptr;
  return Answer(answer, buffer, size);
}

int PCDNSetByKV(const char* key, const char* value) {
  CountCall("PCDNSetByKV");
  if (key == nullptr) return -1;
  return Engine::Instance().Set(key, value == nullptr ? "" : value);
}

const char* PCDNGetByKV(const char* key, const char* argument, char* buffer, int size) {
  CountCall("PCDNGetByKV");
  std::string answer;
  if (key == nullptr || !Engine::Instance().Reply(key, argument, &answer)) return nullptr;
  return Answer(answer, buffer, size);
}

int PCDNClose(int64_t id) {
  CountCall("PCDNClose");
  return Engine::Instance().Close(id);
}

int64_t PCDNSetTraceCallback(PCDNTraceCallback callback) {
  CountCall("PCDNSetTraceCallback");
  if (callback != nullptr) callback("fake pcdn trace attached", fake_engine::kTraceInfoLevel);
  return 0;
}

const char* PCDNNGGet(const char* /*key*/, const char* /*argument*/, char* buffer, int size) {
  CountCall("PCDNNGGet");
  return Answer("ng", buffer, size);
}

}  // extern "C"
