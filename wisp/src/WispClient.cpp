#include <wisp/http/WispClient.h>

#include "RequestPlan.h"
#include "Transport.h"

#include <utility>

namespace wisp {

namespace http {

std::shared_ptr<WispClient> WispClient::Default() {
  // Deliberately never destroyed: joining the network thread from a static
  // destructor would deadlock while the module unloads on Windows.
  static std::shared_ptr<WispClient>* instance = new std::shared_ptr<WispClient>(Create());
  return *instance;
}

std::shared_ptr<WispClient> WispClient::Create() {
  return std::shared_ptr<WispClient>(new WispClient(internal::CreatePlatformTransport()));
}

WispClient::WispClient(std::shared_ptr<internal::Transport> transport)
    : transport_(std::move(transport)) {}

WispClient::~WispClient() { transport_->Shutdown(); }

std::shared_ptr<IRequestCall> WispClient::CreateRequestCaller(RequestType type,
                                                              const Options& options) {
  return transport_->CreateCall(internal::RequestPlan::FromOptions(type, options));
}

std::vector<std::string> WispClient::DnsLookup(const std::string& host) {
  return internal::ResolveHost(host);
}

}  // namespace http
}  // namespace wisp
