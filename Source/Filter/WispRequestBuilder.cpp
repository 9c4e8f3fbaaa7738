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
      settings_(DownloaderSettings::Read(config_)),
      request_(RequestParams::Read(uri_->GetParams())) {}

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
  const double scale = ParseScale(settings_.speedScale);
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
    request->url = UrlUtil::AddQueryParam(url, UrlUtil::kPlayerIdParam, std::to_string(request_.playerId));
  } else {
    request->url = url;
  }
  request->options.Set(wisp::http::option::kUrl, request->url);
  DL_LOGI << logTag_ << "WispDownloadExecutor url= " << request->url;
}

void WispRequestBuilder::FillLiveOptions(WispRequest* request) const {
  if (!request_.isLive) return;
  const int64_t openTimeoutMs = settings_.liveOpenTimeoutMs;
  const int32_t retryLimit = settings_.liveRetryLimit;
  request->options.Set(wisp::http::option::kOpenTimeoutMs, openTimeoutMs);
  request->options.Set(wisp::http::option::kRetryLimit, static_cast<int64_t>(retryLimit));
  DL_LOGI << logTag_ << "live open_timeout:" << openTimeoutMs << ",retry_limit:" << retryLimit;
}

void WispRequestBuilder::FillCelluarOption(WispRequest* request) const {
  const bool hostByDefault = settings_.cellularHostByDefault;
  DL_LOGD << logTag_ << (hostByDefault ? "WISP_CELLUARL_HOST_DEFAULT open" : "WISP_CELLUARL_HOST_DEFAULT close");
  const int32_t getType = settings_.cellularHostGetType;
  if (getType <= 0 && !hostByDefault) return;

  const std::string& url = uri_->GetStringRep();
  std::string gear = UrlUtil::QueryValue(url, "gear_index");
  if (gear.empty()) gear = UrlUtil::QueryValue(url, "slice_gear_index");
  std::string host;
  if (!gear.empty()) {
    host = ReadPrefixedSetting(config_, kCellularHostGearSetting, gear);
    if (host.empty() && settings_.cellularHostNonNull) {
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
  if (request_.isLive && EndsWith(UrlPath(uri_->GetStringRep()), ".flv")) {
    request->options.Set(kLiveFlvOption, "1");
    DL_LOGI << logTag_ << "wispfilter set live_flv";
  }
  const std::string type = MultiType();
  request->options.Set(kMultiTypeOption, type);
  DL_LOGI << logTag_ << "] enable multi type:" << type;
  request->options.Set(kRadicalModeOption, static_cast<int64_t>(settings_.multiRadicalMode));
  request->options.Set(kMultiPathDelayOption, static_cast<int64_t>(settings_.multiPathDelayMs));
  if (!request_.traceUrl.empty()) request->options.Set(wisp::http::option::kTraceUrl, request_.traceUrl);
}

std::string WispRequestBuilder::MultiType() const {
  // Preloads and requests that fell to this level from another one take one path.
  if (request_.preload || request_.downgraded) return "single";
  if (request_.isLive) {
    if (settings_.enableLiveMp) return "mp";
    return settings_.enableLiveMr ? "mr" : "single";
  }
  if (uri_->GetURIType() == kDLUrlM3u8) return settings_.enableM3u8Mp ? "mp" : "single";
  if (settings_.enableMp || settings_.forceMpOn) return "mp";
  return settings_.enableMr ? "mr" : "single";
}

void WispRequestBuilder::FillBitRate(WispRequest* request, int64_t playerBufferMs) const {
  const double factor = ParseScale(settings_.bitRateFactor);
  const int64_t bitRate = request_.bitRate;
  request->options.Set(kBitRateOption, static_cast<int64_t>(static_cast<double>(bitRate) * factor));
  request->options.Set(kPlayerDurationOption, playerBufferMs);
}

void WispRequestBuilder::FillTransportSettings(WispRequest* request) const {
  if (!settings_.proxy.empty()) request->options.Set(wisp::http::option::kProxy, settings_.proxy);
  if (!settings_.caFile.empty()) request->options.Set(wisp::http::option::kCaFile, settings_.caFile);
  if (settings_.tlsInsecure) {
    request->options.Set(wisp::http::option::kTlsVerify, "0");
    DL_LOGW << logTag_ << "certificate checks are off (tls_insecure)";
  }
  const std::string& userAgent = settings_.userAgent;
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
  const int64_t rangeEnd = request_.rangeEnd;
  const int64_t start = seekOffset != kNoSeek ? seekOffset : request_.rangeStart;
  const wisp::http::Range range(start, rangeEnd > 0 ? rangeEnd : wisp::http::Range::kToEnd);
  request->options.MutableHeaders().Add(wisp::http::Range::kHeaderName, range.ToHeader());
  request->rangeStart = range.Start();
}

}  // namespace downloader
