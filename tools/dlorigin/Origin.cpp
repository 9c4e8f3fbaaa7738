#include "Origin.h"

#include "SyntheticContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <regex>
#include <utility>
#include <vector>

namespace dlorigin {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t kDefaultSyntheticSize = 1 << 20;
constexpr int64_t kDefaultSegmentSize = 188 * 1000;
constexpr int64_t kDefaultSegments = 10;
constexpr int64_t kDefaultSegmentSeconds = 4;
constexpr size_t kChunkBytes = 64 * 1024;
// Paced sends move in slices of at most 1/50 s of the rate.
constexpr int64_t kPaceSlicesPerSecond = 50;
// A stall holds the connection at most this long, then drops it.
constexpr std::chrono::seconds kStallLimit{120};
constexpr const char kBinaryType[] = "application/octet-stream";

class FileHandle {
 public:
  explicit FileHandle(int fd) : fd_(fd) {}
  ~FileHandle() {
    if (fd_ >= 0) close(fd_);
  }
  int fd() const { return fd_; }

 private:
  int fd_;
};

std::string RedirectTarget(const httplib::Request& request, int remaining) {
  static const std::regex kRedirects("redirects=[0-9]+");
  return std::regex_replace(request.target, kRedirects, "redirects=" + std::to_string(remaining));
}

}  // namespace

Origin::Origin(std::string root) : root_(std::move(root)) {}

void Origin::Install(httplib::Server* server) {
  server->Get(R"(/syn/.+)", [this](const httplib::Request& request, httplib::Response& response) {
    ServeSynthetic(request, response, kDefaultSyntheticSize);
  });
  server->Get(R"(/hls/.+/index\.m3u8)", [this](const httplib::Request& request, httplib::Response& response) {
    ServePlaylist(request, response);
  });
  server->Get(R"(/hls/.+)", [this](const httplib::Request& request, httplib::Response& response) {
    ServeSynthetic(request, response, kDefaultSegmentSize);
  });
  server->Get(R"(/files/.+)", [this](const httplib::Request& request, httplib::Response& response) {
    ServeFile(request, response);
  });
  server->Get("/stats", [this](const httplib::Request& request, httplib::Response& response) {
    ServeStats(request, response);
  });
}

void Origin::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
}

bool Origin::SleepUntil(Clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(mutex_);
  wake_.wait_until(lock, deadline, [this] { return stopping_.load(); });
  return !stopping_;
}

void Origin::CountRequest(const std::string& tag) {
  ++requests_;
  if (tag.empty()) return;
  std::lock_guard<std::mutex> lock(mutex_);
  ++statsByTag_[tag].requests;
}

void Origin::CountBytes(const std::string& tag, int64_t bytes) {
  bytesSent_ += bytes;
  if (tag.empty()) return;
  std::lock_guard<std::mutex> lock(mutex_);
  statsByTag_[tag].bytesSent += bytes;
}

void Origin::ServeSynthetic(const httplib::Request& request, httplib::Response& response,
                            int64_t defaultSize) {
  Resource resource;
  resource.size = std::max<int64_t>(0, QueryInt(request, "size", defaultSize));
  uint64_t seed = SyntheticSeed(request.path);
  resource.fill = [seed](int64_t offset, uint8_t* out, size_t length) {
    FillSynthetic(seed, static_cast<uint64_t>(offset), out, length);
  };
  Serve(request, response, std::move(resource));
}

void Origin::ServeFile(const httplib::Request& request, httplib::Response& response) {
  const std::string relative = request.path.substr(std::string("/files/").size());
  struct stat status {};
  int fd = -1;
  if (!root_.empty() && relative.find("..") == std::string::npos) {
    fd = open((root_ + "/" + relative).c_str(), O_RDONLY | O_CLOEXEC);
  }
  if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    if (fd >= 0) close(fd);
    CountRequest(request.get_param_value("tag"));
    response.status = 404;
    return;
  }
  auto file = std::make_shared<FileHandle>(fd);
  Resource resource;
  resource.size = status.st_size;
  resource.fill = [file](int64_t offset, uint8_t* out, size_t length) {
    size_t done = 0;
    while (done < length) {
      ssize_t got = pread(file->fd(), out + done, length - done, offset + static_cast<int64_t>(done));
      if (got <= 0) break;
      done += static_cast<size_t>(got);
    }
    std::fill(out + done, out + length, 0);
  };
  Serve(request, response, std::move(resource));
}

void Origin::ServePlaylist(const httplib::Request& request, httplib::Response& response) {
  CountRequest(request.get_param_value("tag"));
  int64_t segments = std::max<int64_t>(0, QueryInt(request, "segments", kDefaultSegments));
  int64_t segmentSize = std::max<int64_t>(0, QueryInt(request, "segment_size", kDefaultSegmentSize));
  int64_t seconds = std::max<int64_t>(1, QueryInt(request, "duration", kDefaultSegmentSeconds));
  std::string playlist = "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:" + std::to_string(seconds) +
                         "\n#EXT-X-MEDIA-SEQUENCE:0\n";
  for (int64_t index = 0; index < segments; ++index) {
    playlist += "#EXTINF:" + std::to_string(seconds) + ".000,\nseg" + std::to_string(index) +
                ".ts?size=" + std::to_string(segmentSize) + "\n";
  }
  playlist += "#EXT-X-ENDLIST\n";
  response.set_content(playlist, "application/vnd.apple.mpegurl");
}

void Origin::ServeStats(const httplib::Request& request, httplib::Response& response) {
  TagStats stats;
  const std::string tag = request.get_param_value("tag");
  if (tag.empty()) {
    stats.requests = requests_;
    stats.bytesSent = bytesSent_;
  } else {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = statsByTag_.find(tag);
    if (found != statsByTag_.end()) stats = found->second;
  }
  response.set_content("requests=" + std::to_string(stats.requests) +
                           " bytes_sent=" + std::to_string(stats.bytesSent) + "\n",
                       "text/plain");
}

bool Origin::ApplyHeaderFaults(const httplib::Request& request, httplib::Response& response,
                               const FaultPlan& plan) {
  constexpr int64_t kPadLineBytes = 1024;
  for (int64_t i = 0; i * kPadLineBytes < plan.headerPad; ++i) {
    response.set_header("X-Pad-" + std::to_string(i), std::string(kPadLineBytes, 'p'));
  }
  if (plan.headerLine > 0) response.set_header("X-Long", std::string(static_cast<size_t>(plan.headerLine), 'l'));
  if (plan.delayMs > 0 && !SleepUntil(Clock::now() + std::chrono::milliseconds(plan.delayMs))) {
    response.status = 503;
    return true;
  }
  if (plan.redirects > 0) {
    response.set_redirect(RedirectTarget(request, plan.redirects - 1));
    return true;
  }
  if (plan.status != 0 && (plan.status < 200 || plan.status >= 300)) {
    response.status = plan.status;
    if (!plan.errorCode.empty()) response.set_header("X-Error-Code", plan.errorCode);
    response.set_content("status " + std::to_string(plan.status) + "\n", "text/plain");
    return true;
  }
  return false;
}

void Origin::Serve(const httplib::Request& request, httplib::Response& response, Resource resource) {
  const FaultPlan plan = FaultPlan::FromRequest(request);
  CountRequest(plan.tag);
  response.set_header("X-Client-Port", std::to_string(request.remote_port));
  if (ApplyHeaderFaults(request, response, plan)) return;

  // Ranges are answered here rather than by the server library, which would
  // otherwise answer them correctly whatever the faults ask.
  const bool ranged = request.ranges.size() == 1 && !plan.ignoreRange;
  const std::pair<ssize_t, ssize_t> asked = ranged ? request.ranges.front() : std::make_pair<ssize_t, ssize_t>(-1, -1);
  const_cast<httplib::Request&>(request).ranges.clear();

  int64_t start = 0;
  int64_t length = resource.size;
  response.status = plan.status != 0 ? plan.status : 200;
  if (ranged) {
    int64_t first = asked.first;
    int64_t last = asked.second;
    if (first < 0) {  // suffix range: the last `last` bytes
      first = std::max<int64_t>(0, resource.size - last);
      last = resource.size - 1;
    }
    if (last < 0 || last >= resource.size) last = resource.size - 1;
    if (first >= resource.size || last < first) {
      response.status = 416;
      response.set_header("Content-Range", "bytes */" + std::to_string(resource.size));
      return;
    }
    start = first;
    length = last - first + 1;
    response.status = 206;
    response.set_header("Content-Range", "bytes " + std::to_string(first + plan.rangeShift) + "-" +
                                             std::to_string(last + plan.rangeShift) + "/" +
                                             std::to_string(resource.size));
  }
  response.set_header("Accept-Ranges", "bytes");
  ProvideBody(response, std::move(resource), start, length, plan);
}

void Origin::ProvideBody(httplib::Response& response, Resource resource, int64_t start, int64_t length,
                         const FaultPlan& plan) {
  if (length == 0) {
    response.set_content("", kBinaryType);
    return;
  }
  auto shared = std::make_shared<Resource>(std::move(resource));
  const Clock::time_point began = Clock::now();
  if (plan.chunked) {
    response.set_chunked_content_provider(
        kBinaryType, [this, shared, start, length, plan, began](size_t offset, httplib::DataSink& sink) {
          int64_t remaining = length - static_cast<int64_t>(offset);
          if (remaining <= 0) {
            sink.done();
            return true;
          }
          return SendChunk(sink, *shared, start, static_cast<int64_t>(offset),
                           std::min<size_t>(static_cast<size_t>(remaining), kChunkBytes), plan, began);
        });
    return;
  }
  response.set_content_provider(
      static_cast<size_t>(length), kBinaryType,
      [this, shared, start, plan, began](size_t offset, size_t length, httplib::DataSink& sink) {
        return SendChunk(sink, *shared, start, static_cast<int64_t>(offset),
                         std::min(length, kChunkBytes), plan, began);
      });
}

bool Origin::SendChunk(httplib::DataSink& sink, const Resource& resource, int64_t start, int64_t offset,
                       size_t length, const FaultPlan& plan, Clock::time_point began) {
  if (plan.stallAfter != FaultPlan::kNever && offset >= plan.stallAfter) {
    SleepUntil(Clock::now() + kStallLimit);
    return false;
  }
  if (plan.dropAfter != FaultPlan::kNever && offset >= plan.dropAfter) return false;
  int64_t limit = length;
  if (plan.stallAfter != FaultPlan::kNever) limit = std::min(limit, plan.stallAfter - offset);
  if (plan.dropAfter != FaultPlan::kNever) limit = std::min(limit, plan.dropAfter - offset);
  if (plan.rate > 0) {
    limit = std::min(limit, std::max<int64_t>(1, plan.rate / kPaceSlicesPerSecond));
    auto due = began + std::chrono::microseconds((offset + limit) * 1000000 / plan.rate);
    if (!SleepUntil(due)) return false;
  }
  thread_local std::vector<uint8_t> buffer(kChunkBytes);
  resource.fill(start + offset, buffer.data(), static_cast<size_t>(limit));
  if (!sink.write(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(limit))) return false;
  CountBytes(plan.tag, limit);
  return true;
}

}  // namespace dlorigin
