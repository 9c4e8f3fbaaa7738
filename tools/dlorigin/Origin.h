// dlorigin's resources and their faults, installed on a cpp-httplib server.
//
//   GET|HEAD /syn/<name>?size=N          synthetic bytes (SyntheticContent.h), default 1 MiB
//   GET|HEAD /files/<path>               a file under the root folder
//   GET      /hls/<name>/index.m3u8?segments=N&segment_size=S&duration=D
//                                        a finished media playlist of N synthetic
//                                        segments /hls/<name>/seg<i>.ts of S bytes
//   GET|HEAD /hls/<name>/<segment>?size=S  one such segment
//   GET      /stats[?tag=T]              "requests=N bytes_sent=M\n", overall or for a tag
//
// Every answer carries X-Client-Port (the client's port, which tells
// connections apart) and honours Range (206, Content-Range; 416 past the end)
// unless a fault says otherwise (FaultPlan.h).
//
// Threads: handlers run on the server's worker threads. Guarded by mutex_:
// statsByTag_; stopping_ is atomic and also signalled through wake_.
#ifndef TOOLS_DLORIGIN_ORIGIN_H_
#define TOOLS_DLORIGIN_ORIGIN_H_

#include "FaultPlan.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace dlorigin {

class Origin {
 public:
  explicit Origin(std::string root);

  void Install(httplib::Server* server);
  // Ends every delay, stall and paced send so that the server can stop.
  void Stop();
  int64_t RequestCount() const { return requests_.load(); }

 private:
  struct Resource {
    int64_t size = 0;
    // Fills `length` bytes of the resource from `offset`.
    std::function<void(int64_t offset, uint8_t* out, size_t length)> fill;
  };
  struct TagStats {
    int64_t requests = 0;
    int64_t bytesSent = 0;
  };

  void ServeSynthetic(const httplib::Request& request, httplib::Response& response, int64_t defaultSize);
  void ServeFile(const httplib::Request& request, httplib::Response& response);
  void ServePlaylist(const httplib::Request& request, httplib::Response& response);
  void ServeStats(const httplib::Request& request, httplib::Response& response);

  // Applies the request's faults and serves `resource` (ranges included).
  void Serve(const httplib::Request& request, httplib::Response& response, Resource resource);
  bool ApplyHeaderFaults(const httplib::Request& request, httplib::Response& response, const FaultPlan& plan);
  void ProvideBody(httplib::Response& response, Resource resource, int64_t start, int64_t length,
                   const FaultPlan& plan);
  bool SendChunk(httplib::DataSink& sink, const Resource& resource, int64_t start, int64_t offset,
                 size_t length, const FaultPlan& plan, std::chrono::steady_clock::time_point began);
  void CountRequest(const std::string& tag);
  void CountBytes(const std::string& tag, int64_t bytes);
  // Sleeps until `deadline`; false when the origin stops first.
  bool SleepUntil(std::chrono::steady_clock::time_point deadline);

  // Constant after construction.
  const std::string root_;

  std::atomic<bool> stopping_{false};
  std::atomic<int64_t> requests_{0};
  std::atomic<int64_t> bytesSent_{0};

  std::mutex mutex_;
  std::condition_variable wake_;
  std::map<std::string, TagStats> statsByTag_;
};

}  // namespace dlorigin

#endif  // TOOLS_DLORIGIN_ORIGIN_H_
