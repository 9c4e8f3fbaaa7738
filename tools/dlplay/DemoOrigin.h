// The demo's origin: dlorigin's resources on a loopback port of this process,
// served from a thread of their own until Stop.
#ifndef TOOLS_DLPLAY_DEMOORIGIN_H_
#define TOOLS_DLPLAY_DEMOORIGIN_H_

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}
namespace dlorigin {
class Origin;
}

namespace dlplay {

class DemoOrigin {
 public:
  DemoOrigin();
  ~DemoOrigin();

  // Binds 127.0.0.1 on a free port; false when that fails.
  bool Start();
  void Stop();

  // "http://127.0.0.1:PORT"
  std::string BaseUrl() const;
  int64_t RequestCount() const;

 private:
  std::unique_ptr<httplib::Server> server_;
  std::unique_ptr<dlorigin::Origin> origin_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_DEMOORIGIN_H_
