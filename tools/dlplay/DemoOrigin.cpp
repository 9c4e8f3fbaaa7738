#include "DemoOrigin.h"

#include <httplib.h>

#include "Origin.h"

namespace dlplay {

DemoOrigin::DemoOrigin() : server_(new httplib::Server), origin_(new dlorigin::Origin(std::string())) {}

DemoOrigin::~DemoOrigin() { Stop(); }

bool DemoOrigin::Start() {
  origin_->Install(server_.get());
  // The server's workers wait out an idle keep-alive connection before they
  // see the stop, and the library keeps its connections open: with the
  // default of 5 s every demo would hang that long at the end.
  server_->set_keep_alive_timeout(0);
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0) return false;
  // Bound and listening already: connections made before the accept loop
  // starts wait in the backlog.
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  return true;
}

void DemoOrigin::Stop() {
  if (!thread_.joinable()) return;
  origin_->Stop();
  server_->stop();
  thread_.join();
}

std::string DemoOrigin::BaseUrl() const { return "http://127.0.0.1:" + std::to_string(port_); }

int64_t DemoOrigin::RequestCount() const { return origin_->RequestCount(); }

}  // namespace dlplay
