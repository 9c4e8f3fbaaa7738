// What a backend provides: calls that share its network threads and
// connection pools, each call's network side running on one of them. One
// Transport per WispClient; each backend folder defines
// CreatePlatformTransport and ResolveHost.
#ifndef WISP_SRC_TRANSPORT_H_
#define WISP_SRC_TRANSPORT_H_

#include "RequestPlan.h"

#include <wisp/http/IRequestCall.h>

#include <memory>
#include <string>
#include <vector>

namespace wisp {
namespace internal {

class Transport {
 public:
  virtual ~Transport();

  // Any thread. Never null.
  virtual std::shared_ptr<http::IRequestCall> CreateCall(RequestPlan spec) = 0;
  // Ends the running calls with ErrorKind::kCancelled and joins the network
  // threads. Idempotent; not from a network thread.
  virtual void Shutdown() = 0;
};

std::shared_ptr<Transport> CreatePlatformTransport();

// Blocking name resolution on the calling thread; numeric addresses, IPv4 first.
std::vector<std::string> ResolveHost(const std::string& host);

// For ResolveHost: appends `numeric` unless it is there already.
void AddAddress(std::vector<std::string>* addresses, const std::string& numeric);
// For ResolveHost: IPv4 addresses before IPv6 ones, each in resolver order.
void PutIPv4First(std::vector<std::string>* addresses);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_TRANSPORT_H_
