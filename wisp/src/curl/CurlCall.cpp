#include "curl/CurlCall.h"

#include "ErrorText.h"
#include "ResponseCheck.h"
#include "ResponseHead.h"
#include "TextUtil.h"
#include "curl/CurlTransport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace wisp {
namespace internal {
namespace {

using http::ErrorKind;

// A call's receive buffer is its share of a budget per network thread. A
// call alone gets a large one, so that its thread makes few recv calls per
// MiB; many calls get smaller ones, so that the buffers stay far below a
// megabyte per stream (libcurl before 8.7 allocates one per transfer): 32
// calls on a thread get 256 KiB each. Shares of 64 KiB cost 15-20% more CPU
// at 64 streams on loopback, where every socket has much waiting at each
// wake-up.
// The size bounds each recv only: libcurl hands the body to the write
// callback in pieces of at most CURL_MAX_WRITE_SIZE (16 KiB) whatever it is.
constexpr int32_t kReceiveBudgetBytes = 8 * 1024 * 1024;
constexpr int32_t kMinReceiveBufferBytes = 64 * 1024;
constexpr int32_t kMaxReceiveBufferBytes = 512 * 1024;
constexpr const char kUserAgent[] = "wisp/1";

ErrorKind KindOf(CURLcode code) {
  switch (code) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      return ErrorKind::kInvalidRequest;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return ErrorKind::kDnsFailure;
    case CURLE_COULDNT_CONNECT:
      return ErrorKind::kConnectFailure;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_SHUTDOWN_FAILED:
      return ErrorKind::kTlsFailure;
    case CURLE_TOO_MANY_REDIRECTS:
      return ErrorKind::kTooManyRedirects;
    case CURLE_OPERATION_TIMEDOUT:
      return ErrorKind::kTimeout;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return ErrorKind::kConnectionLost;
    default:
      return ErrorKind::kInternal;
  }
}

// `callsInProgress` counts the call that asks.
long ReceiveBufferBytes(int32_t callsInProgress) {
  const int32_t share = kReceiveBudgetBytes / std::max(callsInProgress, 1);
  return std::clamp(share, kMinReceiveBufferBytes, kMaxReceiveBufferBytes);
}

std::string LowerFirst(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

// The certificate problem in libcurl's error text, without its wording around it.
std::string CertificateProblem(const std::string& errorText) {
  constexpr std::string_view kPrefix = "SSL certificate problem: ";
  if (errorText.compare(0, kPrefix.size(), kPrefix) == 0) return errorText.substr(kPrefix.size());
  return errorText;
}

// The host libcurl connects to for this request: the proxy when there is one.
void ConnectTarget(const RequestPlan& spec, std::string* host, int32_t* port) {
  if (!spec.proxy.empty()) {
    const size_t colon = spec.proxy.rfind(':');
    *host = spec.proxy.substr(0, colon);
    *port = std::atoi(spec.proxy.c_str() + colon + 1);
  } else {
    *host = spec.connectHost.empty() ? spec.host : spec.connectHost;
    *port = spec.connectPort != 0 ? spec.connectPort : spec.port;
  }
}

http::Error ErrorOf(CURLcode code, const std::string& errorText, long osErrno, const RequestPlan& spec) {
  http::Error error;
  std::string host;
  int32_t port = 0;
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      error = DnsFailure(spec.connectHost.empty() ? spec.host : spec.connectHost, false);
      break;
    case CURLE_COULDNT_RESOLVE_PROXY:
      ConnectTarget(spec, &host, &port);
      error = DnsFailure(host, true);
      break;
    case CURLE_COULDNT_CONNECT:
      ConnectTarget(spec, &host, &port);
      error = ConnectFailure(osErrno != 0 ? LowerFirst(std::strerror(static_cast<int>(osErrno))) : "", host, port);
      break;
    case CURLE_PEER_FAILED_VERIFICATION:
      error = CertificateFailure(CertificateProblem(errorText));
      break;
    case CURLE_SSL_CACERT_BADFILE:
      error = TlsFailure("cannot use the CA file '" + spec.caFile + "'");
      break;
    case CURLE_OPERATION_TIMEDOUT:
      error = OpenTimeout(spec.openTimeoutMs);
      break;
    default:
      error.kind = KindOf(code);
      error.message = curl_easy_strerror(code);
      if (!errorText.empty()) error.message += ": " + errorText;
      if (error.kind == ErrorKind::kTlsFailure) error = TlsFailure(error.message);
      break;
  }
  error.detail = std::to_string(static_cast<int>(code));
  return error;
}

std::string AddressText(const sockaddr* address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address->sa_family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof(text));
  } else if (address->sa_family == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof(text));
  }
  return text;
}

}  // namespace

CurlCall::CurlCall(std::weak_ptr<CurlTransport> transport, CurlTransport* owner,
                   std::shared_ptr<std::atomic<int32_t>> inProgress, RequestPlan spec)
    : CallBase(std::move(spec)), transport_(std::move(transport)), owner_(owner), inProgress_(std::move(inProgress)) {
  inProgress_->fetch_add(1, std::memory_order_relaxed);
}

CurlCall::~CurlCall() { LeaveInProgress(); }

void CurlCall::LeaveInProgress() {
  if (counted_.exchange(false, std::memory_order_relaxed)) inProgress_->fetch_sub(1, std::memory_order_relaxed);
}

bool CurlCall::PostTask(std::function<void()> task) {
  std::shared_ptr<CurlTransport> transport = transport_.lock();
  return transport != nullptr && transport->Post(std::move(task));
}

void CurlCall::Begin() {
  if (Silenced()) {
    LeaveInProgress();
    FinishCancelled();
    return;
  }
  owner_->Track(Self());
  if (Spec().invalid.IsError()) {
    stage_ = Stage::kDone;
    owner_->Untrack(this);
    LeaveInProgress();
    FinishWithError(Spec().invalid);
    return;
  }
  if (!SetUpHandle()) {
    http::Error error;
    error.kind = ErrorKind::kInternal;
    error.message = "cannot set up a transfer";
    Fail(error);
    return;
  }
  StartAttempt();
}

bool CurlCall::SetUpHandle() {
  easy_ = curl_easy_init();
  if (easy_ == nullptr) return false;
  const RequestPlan& spec = Spec();
  curl_easy_setopt(easy_, CURLOPT_URL, spec.url.c_str());
  curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorText_);
  curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy_, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, static_cast<long>(RequestPlan::kMaxRedirects));
  curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
  curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYPEER, spec.verifyTls ? 1L : 0L);
  curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYHOST, spec.verifyTls ? 2L : 0L);
  if (!spec.caFile.empty()) curl_easy_setopt(easy_, CURLOPT_CAINFO, spec.caFile.c_str());
  // Without either, libcurl's default stands: the proxy environment variables.
  if (spec.directOnly) curl_easy_setopt(easy_, CURLOPT_PROXY, "");
  if (!spec.proxy.empty()) curl_easy_setopt(easy_, CURLOPT_PROXY, spec.proxy.c_str());
  curl_easy_setopt(easy_, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(easy_, CURLOPT_USERAGENT, kUserAgent);
  curl_easy_setopt(easy_, CURLOPT_BUFFERSIZE, ReceiveBufferBytes(owner_->CallsInProgress()));
  curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &CurlCall::HeaderThunk);
  curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &CurlCall::BodyThunk);
  curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy_, CURLOPT_OPENSOCKETFUNCTION, &CurlCall::OpenSocketThunk);
  curl_easy_setopt(easy_, CURLOPT_OPENSOCKETDATA, this);
  if (spec.type == http::RequestType::kHead) curl_easy_setopt(easy_, CURLOPT_NOBODY, 1L);
  if (spec.openTimeoutMs > 0) curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(spec.openTimeoutMs));
  if (spec.speedLimit > 0) {
    curl_easy_setopt(easy_, CURLOPT_MAX_RECV_SPEED_LARGE, static_cast<curl_off_t>(spec.speedLimit));
  }
  for (const http::Headers::Field& field : spec.headers.Fields()) {
    std::string line = field.first + ": " + field.second;
    headerList_ = curl_slist_append(headerList_, line.c_str());
  }
  if (headerList_ != nullptr) curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headerList_);
  if (!spec.connectHost.empty()) {
    std::string rule = "::" + spec.connectHost + ":" +
                       (spec.connectPort != 0 ? std::to_string(spec.connectPort) : std::string());
    connectTo_ = curl_slist_append(connectTo_, rule.c_str());
    curl_easy_setopt(easy_, CURLOPT_CONNECT_TO, connectTo_);
  }
  return true;
}

void CurlCall::StartAttempt() {
  status_ = 0;
  headers_ = http::Headers();
  headBytes_ = 0;
  headersDone_ = false;
  curlPaused_ = false;
  pendingError_ = http::Error();
  errorText_[0] = '\0';
  attemptStart_ = Clock::now();
  CURLMcode code = curl_multi_add_handle(owner_->Multi(), easy_);
  if (code != CURLM_OK) {
    http::Error error;
    error.kind = ErrorKind::kInternal;
    error.message = curl_multi_strerror(code);
    Fail(error);
    return;
  }
  stage_ = Stage::kTransferring;
}

void CurlCall::EndTransfer() {
  if (stage_ == Stage::kTransferring) curl_multi_remove_handle(owner_->Multi(), easy_);
  if (easy_ != nullptr) curl_easy_cleanup(easy_);
  easy_ = nullptr;
  curl_slist_free_all(headerList_);
  headerList_ = nullptr;
  curl_slist_free_all(connectTo_);
  connectTo_ = nullptr;
  stage_ = Stage::kDone;
  owner_->Untrack(this);
  LeaveInProgress();
}

void CurlCall::StopForCancel() {
  if (stage_ == Stage::kNotBegun) return;  // Begin, still queued, ends it.
  if (stage_ != Stage::kDone) EndTransfer();
  FinishCancelled();
}

void CurlCall::AbortForShutdown() {
  std::shared_ptr<CurlCall> self = Self();
  EndTransfer();
  http::Error error;
  error.kind = ErrorKind::kCancelled;
  error.message = "client shut down";
  FinishWithError(error);
}

void CurlCall::ApplyPause() {
  if (stage_ == Stage::kDone) return;
  if (IsPaused()) {
    pausedOnNetwork_ = true;  // the body callback holds the transfer at its next block
    return;
  }
  if (pausedOnNetwork_) lastProgress_ = Clock::now();
  pausedOnNetwork_ = false;
  if (curlPaused_ && stage_ == Stage::kTransferring) {
    curlPaused_ = false;
    // May deliver the block libcurl kept while paused, right here.
    curl_easy_pause(easy_, CURLPAUSE_CONT);
  }
}

void CurlCall::OnTransferDone(CURLcode result) {
  std::shared_ptr<CurlCall> self = Self();
  curl_multi_remove_handle(owner_->Multi(), easy_);
  stage_ = Stage::kBetweenAttempts;
  if (Silenced()) {
    EndTransfer();
    FinishCancelled();
  } else if (pendingError_.IsError()) {
    Fail(pendingError_);
  } else if (result == CURLE_OUT_OF_MEMORY && !headersDone_) {
    // libcurl keeps no header line above CURL_MAX_HTTP_HEADER and reports
    // one as out of memory: a refused head, which another attempt would meet
    // again.
    http::Error refused = ResponseHeadTooLarge(headBytes_);
    refused.message = "response header line above " + std::to_string(CURL_MAX_HTTP_HEADER) + " bytes";
    Fail(refused);
  } else if (result != CURLE_OK) {
    long osErrno = 0;
    curl_easy_getinfo(easy_, CURLINFO_OS_ERRNO, &osErrno);
    FailOrRetry(ErrorOf(result, errorText_, osErrno, Spec()));
  } else if (!headersDone_) {
    http::Error error;
    error.kind = ErrorKind::kInternal;
    error.message = "transfer ended without a final response";
    Fail(error);
  } else {
    EndTransfer();
    FinishComplete();
  }
}

void CurlCall::FailOrRetry(const http::Error& error) {
  if (!PlanRetry(error)) Fail(error);
}

void CurlCall::Fail(const http::Error& error) {
  EndTransfer();
  FinishWithError(error);
}

CurlCall::Clock::time_point CurlCall::NextDeadline() const {
  Clock::time_point next = Clock::time_point::max();
  const RequestPlan& spec = Spec();
  if (stage_ == Stage::kBetweenAttempts) next = RetryAt();
  if (stage_ == Stage::kDone || stage_ == Stage::kNotBegun) return next;
  if (!Responded()) next = std::min(next, OpenDeadline());
  if (Responded() && !pausedOnNetwork_ && spec.stallTimeoutMs > 0) {
    next = std::min(next, lastProgress_ + std::chrono::milliseconds(spec.stallTimeoutMs));
  }
  return next;
}

void CurlCall::CheckDeadlines(Clock::time_point now) {
  std::shared_ptr<CurlCall> self = Self();
  const RequestPlan& spec = Spec();
  if (!Responded() && now >= OpenDeadline()) {
    Fail(OpenTimeout(spec.openTimeoutMs));
  } else if (Responded() && !pausedOnNetwork_ && spec.stallTimeoutMs > 0 &&
             now >= lastProgress_ + std::chrono::milliseconds(spec.stallTimeoutMs)) {
    Fail(StallTimeout(spec.stallTimeoutMs));
  } else if (stage_ == Stage::kBetweenAttempts && now >= RetryAt()) {
    ReportPhase(http::StatusPhase::kRetrying, RetriesUsed());
    if (!Silenced()) StartAttempt();
  }
}

size_t CurlCall::HeaderThunk(char* data, size_t size, size_t count, void* self) {
  return static_cast<CurlCall*>(self)->OnHeaderLine(data, size * count);
}

size_t CurlCall::BodyThunk(char* data, size_t size, size_t count, void* self) {
  return static_cast<CurlCall*>(self)->OnBody(data, size * count);
}

curl_socket_t CurlCall::OpenSocketThunk(void* self, curlsocktype purpose, curl_sockaddr* address) {
  if (purpose == CURLSOCKTYPE_IPCXN) {
    static_cast<CurlCall*>(self)->NoteAddressTried(AddressText(&address->addr));
  }
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

size_t CurlCall::OnHeaderLine(const char* data, size_t length) {
  // Trailers and anything after the final response's headers are not ours.
  if (headersDone_) return length;
  headBytes_ += length;
  if (headBytes_ > kMaxResponseHeadBytes) {
    pendingError_ = ResponseHeadTooLarge(headBytes_);
    return 0;  // aborts the transfer
  }
  std::string_view line(data, length);
  int32_t status = 0;
  if (ParseStatusLine(line, &status)) {
    status_ = status;
    headers_ = http::Headers();
  } else if (Trim(line).empty()) {
    if (!OnHeadersEnded()) return 0;  // aborts the transfer
  } else {
    ParseHeaderLine(line, &headers_);
  }
  return length;
}

bool CurlCall::OnHeadersEnded() {
  constexpr int32_t kFirstFinalStatus = 200;
  if (status_ < kFirstFinalStatus) return true;  // interim (1xx): the real one follows
  if (status_ >= 300 && status_ < 400 && headers_.Has("Location")) {
    // libcurl follows it, or ends the transfer with too many redirects.
    if (redirects_ < RequestPlan::kMaxRedirects) {
      ReportPhase(http::StatusPhase::kRedirected, ++redirects_);
    }
    return !Silenced();
  }
  headersDone_ = true;
  ReportConnectionPhases();
  char* effectiveUrl = nullptr;
  char* serverAddress = nullptr;
  curl_easy_getinfo(easy_, CURLINFO_EFFECTIVE_URL, &effectiveUrl);
  curl_easy_getinfo(easy_, CURLINFO_PRIMARY_IP, &serverAddress);
  ResponseVerdict verdict =
      CheckResponse(Spec(), status_, std::move(headers_), effectiveUrl != nullptr ? effectiveUrl : "",
                    serverAddress != nullptr ? serverAddress : "");
  if (verdict.response == nullptr) {
    pendingError_ = verdict.error;
    return false;
  }
  lastProgress_ = Clock::now();
  return DeliverResponse(std::move(verdict.response));
}

void CurlCall::ReportConnectionPhases() {
  long newConnections = 0;
  char* serverAddress = nullptr;
  curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &newConnections);
  curl_easy_getinfo(easy_, CURLINFO_PRIMARY_IP, &serverAddress);
  bool reused = newConnections == 0;
  NoteConnection(serverAddress != nullptr ? serverAddress : "", reused);
  int64_t attemptOffsetUs = MicrosSinceStart(attemptStart_);
  curl_off_t dnsUs = 0;
  curl_off_t connectUs = 0;
  curl_off_t tlsUs = 0;
  curl_off_t firstByteUs = 0;
  curl_easy_getinfo(easy_, CURLINFO_NAMELOOKUP_TIME_T, &dnsUs);
  curl_easy_getinfo(easy_, CURLINFO_CONNECT_TIME_T, &connectUs);
  curl_easy_getinfo(easy_, CURLINFO_APPCONNECT_TIME_T, &tlsUs);
  curl_easy_getinfo(easy_, CURLINFO_STARTTRANSFER_TIME_T, &firstByteUs);
  if (!reused) {
    ReportPhase(http::StatusPhase::kDnsResolved, attemptOffsetUs + dnsUs);
    ReportPhase(http::StatusPhase::kConnected, attemptOffsetUs + connectUs);
    if (tlsUs > 0) ReportPhase(http::StatusPhase::kTlsHandshaken, attemptOffsetUs + tlsUs);
  }
  ReportPhase(http::StatusPhase::kFirstByte, attemptOffsetUs + firstByteUs);
}

size_t CurlCall::OnBody(const char* data, size_t length) {
  if (!headersDone_) return length;  // the body of a redirect
  if (IsPaused()) {
    curlPaused_ = true;
    pausedOnNetwork_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  lastProgress_ = Clock::now();
  if (!DeliverBytes(reinterpret_cast<const uint8_t*>(data), length)) return 0;
  return length;
}

}  // namespace internal
}  // namespace wisp
