// dlplay serve: a loopback HTTP gateway through which any player (a program
// that fetches URLs, a web page) reads through the library.
//
//   GET|HEAD /play[/NAME]?url=<percent-encoded URL>[&session=ID]
//
// (NAME, which rewritten playlists give as the resource's file name, is not
// read: some players accept a segment only by the extension of its path.)
// answers the resource's bytes read through a stream of the session's tunnel
// (GatewaySession; without a session parameter, the client connection is the
// session). A single byte range becomes a stream Seek and a 206; the body is
// sent in bounded pieces as it is read, with Content-Length when the size is
// known and chunked otherwise. A playlist (recognised by its #EXTM3U text) is
// rewritten so that everything it names comes through the gateway too, with
// the session carried along. The origin's 403/404/410 stay what they were;
// other failures before the headers answer 502, and a failure after them
// closes the connection so that the player sees a cut body, not a short one.
// Answers carry CORS headers so that a page from any origin can play.
//
// One access line per request on stderr; with a JSON stream, one report per
// request as in a play.
//
// Threads: Serve blocks on the calling thread; requests are handled on the
// server's worker threads; Stop may be called from any thread. mutex_
// guards sessions_ and the JSON stream.
#ifndef TOOLS_DLPLAY_GATEWAY_H_
#define TOOLS_DLPLAY_GATEWAY_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>

#include <downloader/downloader.h>
#include <wisp/Mutex.h>

#include "GatewaySession.h"
#include "Options.h"
#include "PlayReport.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace dlplay {

class GatewayTransfer;

class Gateway {
 public:
  Gateway(const Options& options, std::shared_ptr<protocols::IConfigure> config,
          std::shared_ptr<protocols::IReporter> reporter, std::ostream* jsonOut);
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  // Binds the listening socket (port 0: a free one). False, with `error`, when it cannot.
  bool Bind(const std::string& host, int port, std::string* error);
  int port() const { return port_; }
  // Answers requests until Stop.
  void Serve();
  void Stop();

  // Access lines and reports; called by the transfers as they end.
  void LogRequest(const std::string& method, int status, const std::string& contentRange,
                  const RequestReport& report);

 private:
  void HandlePlay(const httplib::Request& request, httplib::Response& response);
  void HandlePreflight(const httplib::Request& request, httplib::Response& response);
  void ServePlaylist(GatewayTransfer& transfer, const std::string& sessionId, bool gzipped,
                     httplib::Response& response);
  // Bytes [start, end] of a resource of `size` bytes (0: unknown, then all of it, chunked).
  void ServeMedia(const std::shared_ptr<GatewayTransfer>& transfer, int64_t size, int64_t start, int64_t end,
                  bool partial, httplib::Response& response);
  std::shared_ptr<GatewaySession> SessionFor(const std::string& id);
  // The URI a playlist names `absoluteUrl` by, in session `sessionId`.
  static std::string PlayUri(const std::string& absoluteUrl, const std::string& sessionId);

  const Options options_;
  std::shared_ptr<protocols::IConfigure> config_;
  std::shared_ptr<protocols::IReporter> reporter_;
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;

  wisp::Mutex mutex_;
  std::ostream* jsonOut_;
  std::map<std::string, std::shared_ptr<GatewaySession>> sessions_ GUARDED_BY(mutex_);
  uint64_t sessionsMade_ GUARDED_BY(mutex_) = 0;
};

// Runs `dlplay serve` until `*stop` turns true; the process's exit status.
int RunGateway(const Options& options, std::shared_ptr<protocols::IConfigure> config,
               const std::atomic<bool>* stop);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_GATEWAY_H_
