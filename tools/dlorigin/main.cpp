// dlorigin: a loopback HTTP origin for tests, the demo and the benchmarks,
// with faults chosen per request by the URL (see Origin.h and FaultPlan.h).
//
//   dlorigin [--port N] [--host ADDR] [--root DIR] [--ready-file PATH] [--lifetime SECONDS]
//
// --port 0 (the default) takes a free port. Once listening it prints
// "dlorigin listening on http://ADDR:PORT" and, with --ready-file, writes that
// URL to PATH (atomically). It stops on SIGINT or SIGTERM, or after
// --lifetime seconds, and prints how many requests it served.
#include "Origin.h"

#include <httplib.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>

namespace {

// Keep-alive connections of many concurrent clients each hold a worker.
constexpr size_t kWorkerThreads = 256;
constexpr size_t kKeepAliveRequests = 100000;
constexpr time_t kKeepAliveSeconds = 10;
// A request arrives in one piece on loopback; what does not parse as one in a
// second (a TLS hello, say) is not going to.
constexpr time_t kReadTimeoutSeconds = 1;
// A client that pauses its download holds the server's write this long
// before the server gives up on it.
constexpr time_t kWriteTimeoutSeconds = 120;

struct Arguments {
  int port = 0;
  std::string host = "127.0.0.1";
  std::string root;
  std::string readyFile;
  long lifetimeSeconds = 0;
};

bool ParseArguments(int argc, char** argv, Arguments* arguments) {
  for (int i = 1; i < argc; ++i) {
    std::string name = argv[i];
    if (i + 1 >= argc) return false;
    std::string value = argv[++i];
    if (name == "--port") {
      arguments->port = std::atoi(value.c_str());
    } else if (name == "--host") {
      arguments->host = value;
    } else if (name == "--root") {
      arguments->root = value;
    } else if (name == "--ready-file") {
      arguments->readyFile = value;
    } else if (name == "--lifetime") {
      arguments->lifetimeSeconds = std::atol(value.c_str());
    } else {
      return false;
    }
  }
  return true;
}

bool WriteReadyFile(const std::string& path, const std::string& url) {
  const std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::trunc);
    out << url << "\n";
    if (!out) return false;
  }
  return std::rename(temporary.c_str(), path.c_str()) == 0;
}

// Waits for SIGINT/SIGTERM (blocked in every thread) or the end of the lifetime.
void WaitForStop(const sigset_t& signals, long lifetimeSeconds) {
  if (lifetimeSeconds <= 0) {
    int received = 0;
    sigwait(&signals, &received);
    return;
  }
  timespec limit{};
  limit.tv_sec = lifetimeSeconds;
  sigtimedwait(&signals, nullptr, &limit);
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  if (!ParseArguments(argc, argv, &arguments)) {
    std::fprintf(stderr,
                 "usage: dlorigin [--port N] [--host ADDR] [--root DIR] [--ready-file PATH] "
                 "[--lifetime SECONDS]\n");
    return 2;
  }
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  httplib::Server server;
  server.new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
  server.set_keep_alive_max_count(kKeepAliveRequests);
  server.set_keep_alive_timeout(kKeepAliveSeconds);
  server.set_read_timeout(kReadTimeoutSeconds, 0);
  server.set_write_timeout(kWriteTimeoutSeconds, 0);
  dlorigin::Origin origin(arguments.root);
  origin.Install(&server);

  int port = arguments.port;
  bool bound = port == 0 ? (port = server.bind_to_any_port(arguments.host)) > 0
                         : server.bind_to_port(arguments.host, port);
  if (!bound) {
    std::fprintf(stderr, "dlorigin: cannot listen on %s:%d\n", arguments.host.c_str(), arguments.port);
    return 1;
  }
  const std::string url = "http://" + arguments.host + ":" + std::to_string(port);
  std::thread listener([&server] { server.listen_after_bind(); });
  std::printf("dlorigin listening on %s\n", url.c_str());
  std::fflush(stdout);
  if (!arguments.readyFile.empty() && !WriteReadyFile(arguments.readyFile, url)) {
    std::fprintf(stderr, "dlorigin: cannot write %s\n", arguments.readyFile.c_str());
  }

  WaitForStop(signals, arguments.lifetimeSeconds);
  origin.Stop();
  server.stop();
  listener.join();
  std::printf("dlorigin served %lld requests\n", static_cast<long long>(origin.RequestCount()));
  return 0;
}
