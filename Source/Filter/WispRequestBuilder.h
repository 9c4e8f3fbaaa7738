// Turns one request of the HTTP level (the URI, its parameters, the settings)
// into what the network library is asked for: the options map and the header
// fields of one call.
//
// What goes in, in order: a speed limit from the last measured speed and the
// "speed_scale" setting; the URL with the player id added (playlist URLs as
// they are); for live requests the open time-out and retry limit of
// "http_downloader_kit"; a cellular host when the settings ask for one; the
// strategy hints (multi-path type, live FLV, trace URL); bit rate and the
// player's buffered duration; the transport settings of "http_downloader_kit"
// ("proxy", "ca_file", "tls_insecure", "user_agent"); header fields passed in
// the URI's header text as "name:value&name:value" (text with CR or LF in it
// refuses the request: it could add header lines); a Range when the request
// names one or a seek asks for an offset.
//
// Stateless after construction; Build may be called from any thread.
#ifndef DOWNLOADER_FILTER_WISPREQUESTBUILDER_H_
#define DOWNLOADER_FILTER_WISPREQUESTBUILDER_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/Pipe/ConfigReader.h>
#include <wisp/http/Options.h>

#include "Base/Settings.h"

namespace downloader {

struct WispRequest {
  wisp::http::Options options;
  std::string url;
  // Offset in the resource of the first byte asked for.
  int64_t rangeStart = 0;
  // A header field of the request carried the speed-up flag.
  bool speedUp = false;
  // Non-empty: the request must not be sent, for this reason.
  std::string refusal;
};

class WispRequestBuilder {
 public:
  // A header field of this name, passed in the URI, marks a request the host
  // wants sped up.
  static constexpr const char kSpeedUpHeader[] = "X-Speed-Up";
  static constexpr int64_t kNoSeek = -1;

  // `logTag` starts every line this builder logs (the executor's index and player).
  WispRequestBuilder(ConfigPtr config, std::shared_ptr<URI> uri, std::string logTag);

  // `seekOffset` >= 0 asks for the bytes from there on (the request's own
  // "range_end" still bounds them); kNoSeek uses the request's own range.
  WispRequest Build(int64_t seekOffset, int64_t playerBufferMs) const;

 private:
  void FillSpeedLimit(WispRequest* request) const;
  void FillUrl(WispRequest* request) const;
  void FillLiveOptions(WispRequest* request) const;
  void FillCelluarOption(WispRequest* request) const;
  void FillStrategyOption(WispRequest* request) const;
  void FillBitRate(WispRequest* request, int64_t playerBufferMs) const;
  void FillTransportSettings(WispRequest* request) const;
  void FillHeaders(WispRequest* request) const;
  void FillRange(WispRequest* request, int64_t seekOffset) const;
  // "single", "mp" or "mr".
  std::string MultiType() const;

  // Constant after construction.
  const ConfigPtr config_;
  const std::shared_ptr<URI> uri_;
  const std::string logTag_;
  const DownloaderSettings settings_;
  const RequestParams request_;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPREQUESTBUILDER_H_
