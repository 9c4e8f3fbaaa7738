// One gateway request's stream, from its open to its release: the bytes go
// to the player in pieces of at most kPieceSize as the stream yields them, so
// that a transfer holds one piece (a playlist: its whole text, bounded) and
// never the resource. The transfer ends (stream closed, released to its
// session, its report made) when the HTTP layer lets it go, whether the body
// was sent in full, cut by a failure or abandoned by the player.
//
// Threads: one worker thread at a time (the one answering the request), then
// whichever thread releases it. No member is shared.
#ifndef TOOLS_DLPLAY_GATEWAYTRANSFER_H_
#define TOOLS_DLPLAY_GATEWAYTRANSFER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <downloader/downloader.h>

#include "GatewaySession.h"
#include "PlayReport.h"

namespace dlplay {

class GatewayTransfer {
 public:
  static constexpr size_t kPieceSize = 64 * 1024;
  // Writes bytes to the player; false when the player is gone.
  using Writer = std::function<bool(const char* data, size_t length)>;
  enum class PumpResult { kMore, kEnd, kFailed };
  // Called once, as the transfer ends, with the HTTP status answered, the
  // Content-Range sent ("" for none) and the report.
  using EndCallback = std::function<void(int status, const std::string& contentRange, const RequestReport& report)>;

  GatewayTransfer(std::shared_ptr<GatewaySession> session, const std::string& url, EndCallback onEnd);
  ~GatewayTransfer();
  GatewayTransfer(const GatewayTransfer&) = delete;
  GatewayTransfer& operator=(const GatewayTransfer&) = delete;

  const std::string& url() const { return url_; }
  GatewaySession& session() const { return *session_; }

  // False when the stream could not be opened; OpenSubCode tells why.
  bool Open(const std::map<std::string, std::string>& params);
  int64_t OpenSubCode() const { return report_.subCode; }
  // The resource's size, 0 when unknown.
  int64_t FileSize() const { return stream_->GetFileSize(); }
  std::string EffectiveUrl() const;
  bool Seek(int64_t offset);

  // Reads the first piece, kept for the next Pump. False on failure.
  bool Peek();
  const std::vector<char>& pending() const { return pending_; }
  // Reads the rest into `body` (after what was peeked). False on failure or past `limit` bytes.
  bool ReadAll(std::string* body, size_t limit);
  // Sends at most `maxBytes` (one piece at most) to `write`.
  PumpResult Pump(const Writer& write, uint64_t maxBytes);

  void SetStatus(int status) { status_ = status; }
  void SetContentRange(const std::string& contentRange) { contentRange_ = contentRange; }
  // The whole body reached the player: the end counts it as delivered.
  void MarkComplete() { complete_ = true; }
  // A body sent in one piece (a rewritten playlist) rather than pumped.
  void CountSent(uint64_t bytes) { report_.bytes += bytes; }

 private:
  // Reads one piece into pending_; kEnd when the stream is at its end.
  PumpResult Fill(uint64_t maxBytes);
  void Describe();

  std::shared_ptr<GatewaySession> session_;
  std::shared_ptr<downloader::IStream> stream_;
  const std::string url_;
  EndCallback onEnd_;
  std::chrono::steady_clock::time_point began_;
  std::vector<char> pending_;
  RequestReport report_;
  int status_ = 0;
  std::string contentRange_;
  bool complete_ = false;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_GATEWAYTRANSFER_H_
