#include "curl/CurlTransportPool.h"

#include "curl/CurlTransport.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace wisp {
namespace internal {

std::shared_ptr<Transport> CreatePlatformTransport() { return CurlTransportPool::Create(); }

std::shared_ptr<CurlTransportPool> CurlTransportPool::Create() {
  // hardware_concurrency() is 0 when it cannot tell.
  const int32_t hardwareThreads = static_cast<int32_t>(std::thread::hardware_concurrency());
  return Create(std::clamp(hardwareThreads, 1, kMaxNetworkThreads));
}

std::shared_ptr<CurlTransportPool> CurlTransportPool::Create(int32_t threads) {
  std::vector<std::shared_ptr<CurlTransport>> transports;
  for (int32_t i = 0; i < std::max(threads, 1); ++i) transports.push_back(CurlTransport::Create());
  return std::shared_ptr<CurlTransportPool>(new CurlTransportPool(std::move(transports)));
}

CurlTransportPool::CurlTransportPool(std::vector<std::shared_ptr<CurlTransport>> transports)
    : transports_(std::move(transports)) {}

CurlTransportPool::~CurlTransportPool() { Shutdown(); }

std::shared_ptr<http::IRequestCall> CurlTransportPool::CreateCall(RequestPlan spec) {
  return LeastBusy()->CreateCall(std::move(spec));
}

void CurlTransportPool::Shutdown() {
  for (const std::shared_ptr<CurlTransport>& transport : transports_) transport->Shutdown();
}

CurlTransport* CurlTransportPool::LeastBusy() const {
  CurlTransport* chosen = transports_.front().get();
  int32_t fewest = chosen->CallsInProgress();
  for (const std::shared_ptr<CurlTransport>& transport : transports_) {
    const int32_t calls = transport->CallsInProgress();
    // Strictly fewer: the lowest index wins a tie.
    if (calls < fewest) {
      chosen = transport.get();
      fewest = calls;
    }
  }
  return chosen;
}

}  // namespace internal
}  // namespace wisp
