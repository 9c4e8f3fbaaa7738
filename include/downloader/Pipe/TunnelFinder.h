// The process-wide registry of tunnels by id, so that other parts of the
// library reach a tunnel without keeping it alive.
//
// Thread rules: any thread; mutex_ guards the map.
//
// Edge cases: an unknown id gives an empty weak pointer; a registered tunnel
// that has died gives an expired one. Adding a tunnel under an id already
// taken replaces the entry.
#ifndef DOWNLOADER_PIPE_TUNNELFINDER_H_
#define DOWNLOADER_PIPE_TUNNELFINDER_H_

#include <cstdint>
#include <map>
#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/ITunnel.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT TunnelFinder {
 public:
  static TunnelFinder& Shared();

  TunnelFinder();
  ~TunnelFinder();
  TunnelFinder(const TunnelFinder&) = delete;
  TunnelFinder& operator=(const TunnelFinder&) = delete;

  void AddTunnel(const std::shared_ptr<ITunnel>& tunnel);
  std::weak_ptr<ITunnel> GetTunnelById(uint64_t id);
  void RemoveTunnel(const std::shared_ptr<ITunnel>& tunnel);

 private:
  wisp::Mutex mutex_;
  std::map<uint64_t, std::weak_ptr<ITunnel>> tunnels_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_TUNNELFINDER_H_
