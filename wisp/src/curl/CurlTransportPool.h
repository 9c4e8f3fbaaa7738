// The POSIX backend's transport: a few network threads, each a CurlTransport
// with its own multi handle, connections and DNS cache, so that the receive
// work of many transfers spreads over the machine's cores instead of being
// bound by one.
//
// A new call goes to the transport with the fewest calls in progress, the
// lowest index on a tie. Calls made one after another (a playlist's
// segments) therefore keep landing on the first transport and keep reusing
// its kept-alive connections; only calls that overlap spread out. Two calls
// created at the same moment on two threads may both pick the same
// transport: the choice balances, it does not reserve.
//
// A call stays on its transport for good: its callbacks, and the tasks that
// its Start, Cancel, Pause and Resume post, all run on that one thread.
//
// Threads: CreateCall and Shutdown from any thread (Shutdown not from one of
// the pool's network threads). The transports are fixed at construction.
#ifndef WISP_SRC_CURL_CURLTRANSPORTPOOL_H_
#define WISP_SRC_CURL_CURLTRANSPORTPOOL_H_

#include "Transport.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace wisp {
namespace internal {

class CurlTransport;

class CurlTransportPool : public Transport {
 public:
  // Each thread splits the kept-alive connections and the DNS cache
  // further, and beyond a few the host's own threads (readers, storage) need
  // the cores more than the receive work does.
  static constexpr int32_t kMaxNetworkThreads = 4;

  // One network thread per hardware thread, from 1 to kMaxNetworkThreads.
  static std::shared_ptr<CurlTransportPool> Create();
  // Exactly `threads` network threads (at least 1).
  static std::shared_ptr<CurlTransportPool> Create(int32_t threads);
  ~CurlTransportPool() override;

  std::shared_ptr<http::IRequestCall> CreateCall(RequestPlan spec) override;
  // Shuts every transport down, one after the other.
  void Shutdown() override;

 private:
  explicit CurlTransportPool(std::vector<std::shared_ptr<CurlTransport>> transports);
  CurlTransport* LeastBusy() const;

  // Constant after construction.
  const std::vector<std::shared_ptr<CurlTransport>> transports_;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_CURL_CURLTRANSPORTPOOL_H_
