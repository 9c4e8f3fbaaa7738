#include <downloader/Pipe/TunnelFinder.h>
#include <wisp/Mutex.h>

namespace downloader {

TunnelFinder& TunnelFinder::Shared() {
  // Never destroyed: tunnels may unregister while the process exits.
  static TunnelFinder* const finder = new TunnelFinder();
  return *finder;
}

TunnelFinder::TunnelFinder() = default;

TunnelFinder::~TunnelFinder() = default;

void TunnelFinder::AddTunnel(const std::shared_ptr<ITunnel>& tunnel) {
  if (!tunnel) return;
  wisp::MutexLock lock(&mutex_);
  tunnels_[tunnel->GetTunnelID()] = tunnel;
}

std::weak_ptr<ITunnel> TunnelFinder::GetTunnelById(uint64_t id) {
  wisp::MutexLock lock(&mutex_);
  auto entry = tunnels_.find(id);
  return entry == tunnels_.end() ? std::weak_ptr<ITunnel>() : entry->second;
}

void TunnelFinder::RemoveTunnel(const std::shared_ptr<ITunnel>& tunnel) {
  if (!tunnel) return;
  wisp::MutexLock lock(&mutex_);
  tunnels_.erase(tunnel->GetTunnelID());
}

}  // namespace downloader
