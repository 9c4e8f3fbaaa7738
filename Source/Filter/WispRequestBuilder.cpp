#include "Filter/WispRequestBuilder.h"

#include <cstdlib>
#include <regex>
#include <utility>

#include <wisp/http/Range.h>

#include "Base/UrlUtil.h"
#include "Filter/WispTotals.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

// Option keys the network library does not interpret itself: strategy hints
// for the transports and the CDN's scheduling.
constexpr char kLiveFlvOption[] = "live_flv";
constexpr char kMultiTypeOption[] = "type";
constexpr char kRadicalModeOption[] = "muti_radical_mode";
constexpr char kMultiPathDelayOption[] = "mp_delay_ms";
constexpr char kBitRateOption[] = "bit_rate";
constexpr char kPlayerDurationOption[] = "player_duration";
constexpr char kForce4GDomainOption[] = "force4GDomain";

double ParseScale(const std::string& text) { return std::strtod(text.c_str(), nullptr); }

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The URL without its query and fragment.
std::string UrlPath(const std::string& url) { return url.substr(0, url.find_first_of("?#")); }

}  // namespace

WispRequestBuilder::WispRequestBuilder(ConfigPtr config, std::shared_ptr<URI> uri, std::string logTag)
    : config_(std::move(config)),
      uri_(std::move(uri)),
      logTag_(std::move(logTag)),
      isLive_(ReadParamBool(uri_->GetParams(), "is_live", false)) {}

WispRequest WispRequestBuilder::Build(int64_t seekOffset, int64_t playerBufferMs) const {
  WispRequest request;
  FillSpeedLimit(&request);
  FillUrl(&request);
  FillLiveOptions(&request);
  FillCelluarOption(&request);
  FillStrategyOption(&request);
  FillBitRate(&request, playerBufferMs);
  FillHeaders(&request);
  FillTransportSettings(&request);
  FillRange(&request, seekOffset);
  return request;
}

void WispRequestBuilder::FillSpeedLimit(WispRequest* request) const {
  const double scale = ParseScale(ReadConfigString(config_, kPlayStartConfigGroup, "speed_scale", "0"));
  const int64_t lastSpeed = WispTotals::LastDownloadSpeed();
  if (scale <= 0 || lastSpeed <= 0) return;
  const int64_t limit = static_cast<int64_t>(static_cast<double>(lastSpeed) * scale);
  request->options.Set(wisp::http::option::kSpeedLimit, limit);
  DL_LOGI << logTag_ << "WispDownloadExecutor speed_limit:" << limit << ",scale:" << scale
          << ",last_download_speed:" << lastSpeed;
}

void WispRequestBuilder::FillUrl(WispRequest* request) const {
  const std::string& url = uri_->GetStringRep();
  if (url.find("/playlist/") == std::string::npos) {
    const int32_t playerId = ReadParamInt(Params(), "player_id", -1);
    request->url = UrlUtil::AddQueryParam(url, UrlUtil::kPlayerIdParam, std::to_string(playerId));
  } else {
    request->url = url;
  }
  request->options.Set(wisp::http::option::kUrl, request->url);
  DL_LOGI << logTag_ << "WispDownloadExecutor url= " << request->url;
}

void WispRequestBuilder::FillLiveOptions(WispRequest* request) const {
  if (!isLive_) return;
  const int64_t openTimeoutMs =
      ReadConfigInt64(config_, kHttpDownloaderKitGroup, "live_open_timeout", kDefaultLiveOpenTimeoutMs);
  const int32_t retryLimit = ReadConfigInt(config_, kHttpDownloaderKitGroup, "live_retry_limit", kDefaultLiveRetryLimit);
  request->options.Set(wisp::http::option::kOpenTimeoutMs, openTimeoutMs);
  request->options.Set(wisp::http::option::kRetryLimit, static_cast<int64_t>(retryLimit));
  DL_LOGI << logTag_ << "live open_timeout:" << openTimeoutMs << ",retry_limit:" << retryLimit;
}

void WispRequestBuilder::FillCelluarOption(WispRequest* request) const {
  const bool hostByDefault = ReadConfigBool(config_, kHttpDownloaderKitGroup, "wisp_cellular_host_default", false);
  DL_LOGD << logTag_ << (hostByDefault ? "WISP_CELLUARL_HOST_DEFAULT open" : "WISP_CELLUARL_HOST_DEFAULT close");
  const int32_t getType = ReadConfigInt(config_, kHttpDownloaderKitGroup, "celluar_host_get_type", 0);
  if (getType <= 0 && !hostByDefault) return;

  const std::string& url = uri_->GetStringRep();
  std::string gear = UrlUtil::QueryValue(url, "gear_index");
  if (gear.empty()) gear = UrlUtil::QueryValue(url, "slice_gear_index");
  std::string host;
  if (!gear.empty()) {
    host = ReadConfigString(config_, kHttpDownloaderKitGroup, "cellular_host_gear_" + gear, "");
    if (host.empty() && ReadConfigBool(config_, kHttpDownloaderKitGroup, "wisp_cellular_host_nonull", false)) {
      host = UrlUtil::Host(url);
    }
    DL_LOGI << logTag_ << (host.empty() ? "dl_getUrlHost no cellularHost" : "dl_getUrlHost cellularHost:") << host;
  } else {
    host = UrlUtil::Host(url);
    DL_LOGI << logTag_ << "no gear_index, but get cellularHost:" << host;
  }
  if (host.empty()) {
    DL_LOGI << logTag_ << "WispDownloadExecutor cellularHost is empty";
    return;
  }
  request->options.Set(wisp::http::option::kHost, host);
  request->options.Set(kForce4GDomainOption, "true;");
}

void WispRequestBuilder::FillStrategyOption(WispRequest* request) const {
  if (isLive_ && EndsWith(UrlPath(uri_->GetStringRep()), ".flv")) {
    request->options.Set(kLiveFlvOption, "1");
    DL_LOGI << logTag_ << "wispfilter set live_flv";
  }
  const std::string type = MultiType();
  request->options.Set(kMultiTypeOption, type);
  DL_LOGI << logTag_ << "] enable multi type:" << type;
  request->options.Set(kRadicalModeOption,
                       static_cast<int64_t>(ReadConfigInt(config_, kDownloaderConfigGroup, "muti_radical_mode", 0)));
  request->options.Set(kMultiPathDelayOption,
                       static_cast<int64_t>(ReadConfigInt(config_, kDownloaderConfigGroup, "mp_delay_ms", 0)));
  const std::string traceUrl = ReadParamString(Params(), "traceUrl", "");
  if (!traceUrl.empty()) request->options.Set(wisp::http::option::kTraceUrl, traceUrl);
}

std::string WispRequestBuilder::MultiType() const {
  // Preloads and requests that fell to this level from another one take one path.
  if (ReadParamBool(Params(), "preload", false) || ReadParamBool(Params(), "dl_downgrade", false)) return "single";
  auto on = [this](const char* key) { return ReadConfigBool(config_, kDownloaderConfigGroup, key, false); };
  if (isLive_) {
    if (on("enable_live_mp")) return "mp";
    return on("enable_live_mr") ? "mr" : "single";
  }
  if (uri_->GetURIType() == kDLUrlM3u8) return on("enable_m3u8_mp") ? "mp" : "single";
  if (on("enable_mp") || on("force_mp_on")) return "mp";
  return on("enable_mr") ? "mr" : "single";
}

void WispRequestBuilder::FillBitRate(WispRequest* request, int64_t playerBufferMs) const {
  const double factor = ParseScale(ReadConfigString(config_, kPlayStartConfigGroup, "bit_rate_factor", "1.0"));
  const int64_t bitRate = ReadParamInt64(Params(), "bit_rate", 0);
  request->options.Set(kBitRateOption, static_cast<int64_t>(static_cast<double>(bitRate) * factor));
  request->options.Set(kPlayerDurationOption, playerBufferMs);
}

void WispRequestBuilder::FillTransportSettings(WispRequest* request) const {
  auto setting = [this](const char* key) { return ReadConfigString(config_, kHttpDownloaderKitGroup, key, ""); };
  const std::string proxy = setting("proxy");
  if (!proxy.empty()) request->options.Set(wisp::http::option::kProxy, proxy);
  const std::string caFile = setting("ca_file");
  if (!caFile.empty()) request->options.Set(wisp::http::option::kCaFile, caFile);
  if (ReadConfigBool(config_, kHttpDownloaderKitGroup, "tls_insecure", false)) {
    request->options.Set(wisp::http::option::kTlsVerify, "0");
    DL_LOGW << logTag_ << "certificate checks are off (tls_insecure)";
  }
  const std::string userAgent = setting("user_agent");
  // A User-Agent of the request's own header text wins over the setting.
  wisp::http::Headers& headers = request->options.MutableHeaders();
  if (!userAgent.empty() && !headers.Has("User-Agent") && !headers.Add("User-Agent", userAgent)) {
    request->refusal = "the user_agent setting carries CR or LF";
    DL_LOGE << logTag_ << "refused the user_agent setting with CR or LF; the request is not sent";
  }
}

void WispRequestBuilder::FillHeaders(WispRequest* request) const {
  const std::string& text = uri_->GetHttpHeader();
  if (text.empty()) return;
  DL_LOGI << logTag_ << "] pass http header:" << text;
  if (text.find_first_of("\r\n") != std::string::npos) {
    // The field pattern does not span lines: a line break would start a field of its own.
    request->refusal = "header text carries CR or LF";
    DL_LOGE << logTag_ << "refused http header text with CR or LF; the request is not sent";
    return;
  }
  static const std::regex kField("(.+?):(.+?)&");
  const std::string fields = text + "&";
  for (std::sregex_iterator match(fields.begin(), fields.end(), kField), end; match != end; ++match) {
    const std::string name = (*match)[1].str();
    const std::string value = (*match)[2].str();
    if (!request->options.MutableHeaders().Add(name, value)) {
      DL_LOGW << logTag_ << "refused http header " << name;
      continue;
    }
    DL_LOGD << logTag_ << "add http header " << name << ":" << value;
    if (name == kSpeedUpHeader) {
      request->speedUp = true;
      DL_LOGI << logTag_ << "WispDownloadExecutor got speed up flag";
    }
  }
}

void WispRequestBuilder::FillRange(WispRequest* request, int64_t seekOffset) const {
  const bool named = uri_->ContainsParamKey("range_start") || uri_->ContainsParamKey("range_end");
  if (!named && seekOffset == kNoSeek) return;
  const int64_t rangeEnd = ReadParamInt64(Params(), "range_end", 0);
  const int64_t start = seekOffset != kNoSeek ? seekOffset : ReadParamInt64(Params(), "range_start", 0);
  const wisp::http::Range range(start, rangeEnd > 0 ? rangeEnd : wisp::http::Range::kToEnd);
  request->options.MutableHeaders().Add(wisp::http::Range::kHeaderName, range.ToHeader());
  request->rangeStart = range.Start();
}

}  // namespace downloader
