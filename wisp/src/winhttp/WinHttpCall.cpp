#include "winhttp/WinHttpCall.h"

#include "ErrorText.h"
#include "RedirectLocation.h"
#include "ResponseCheck.h"
#include "ResponseHead.h"
#include "winhttp/WinHttpTransport.h"

#include <algorithm>
#include <utility>

namespace wisp {
namespace internal {
namespace {

using http::ErrorKind;

constexpr size_t kReadBufferBytes = 256 * 1024;
constexpr DWORD kInfiniteTimeout = 0;
constexpr int32_t kRedirectClassBegin = 300;
constexpr int32_t kRedirectClassEnd = 400;
// Under a speed limit, reads are sized to a tenth of a second of the rate.
constexpr int64_t kReadsPerSecondWhenLimited = 10;

std::wstring Wide(const std::string& text) {
  if (text.empty()) return std::wstring();
  int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &wide[0], length);
  return wide;
}

std::string Narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                   nullptr);
  std::string narrow(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &narrow[0], length, nullptr,
                      nullptr);
  return narrow;
}

ErrorKind KindOf(DWORD code) {
  switch (code) {
    case ERROR_WINHTTP_INVALID_URL:
    case ERROR_WINHTTP_UNRECOGNIZED_SCHEME:
      return ErrorKind::kInvalidRequest;
    case ERROR_WINHTTP_NAME_NOT_RESOLVED:
      return ErrorKind::kDnsFailure;
    case ERROR_WINHTTP_CANNOT_CONNECT:
      return ErrorKind::kConnectFailure;
    case ERROR_WINHTTP_SECURE_FAILURE:
    case ERROR_WINHTTP_SECURE_CHANNEL_ERROR:
    case ERROR_WINHTTP_SECURE_INVALID_CERT:
    case ERROR_WINHTTP_SECURE_CERT_REVOKED:
    case ERROR_WINHTTP_SECURE_INVALID_CA:
    case ERROR_WINHTTP_SECURE_CERT_CN_INVALID:
    case ERROR_WINHTTP_SECURE_CERT_DATE_INVALID:
    case ERROR_WINHTTP_SECURE_CERT_REV_FAILED:
    case ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE:
    case ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED:
      return ErrorKind::kTlsFailure;
    case ERROR_WINHTTP_REDIRECT_FAILED:
      return ErrorKind::kTooManyRedirects;
    case ERROR_WINHTTP_TIMEOUT:
      return ErrorKind::kTimeout;
    // WinHTTP's own bound on a response head (64 KiB unless set otherwise).
    case ERROR_WINHTTP_HEADER_SIZE_OVERFLOW:
      return ErrorKind::kResponseRefused;
    case ERROR_WINHTTP_CONNECTION_ERROR:
    case ERROR_WINHTTP_INVALID_SERVER_RESPONSE:
    case ERROR_WINHTTP_RESEND_REQUEST:
      return ErrorKind::kConnectionLost;
    default:
      return ErrorKind::kInternal;
  }
}

http::Error Failure(ErrorKind kind, std::string message) {
  http::Error error;
  error.kind = kind;
  error.message = std::move(message);
  return error;
}

// What WinHTTP's secure-failure flags say of the server's certificate.
std::string CertificateProblem(DWORD flags) {
  if (flags & WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA) return "unknown or untrusted certificate authority";
  if (flags & WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID) return "the name does not match the host";
  if (flags & WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID) return "the certificate has expired or is not yet valid";
  if (flags & WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED) return "the certificate was revoked";
  if (flags & WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT) return "invalid certificate";
  return std::string();
}

// A failed WinHTTP call; a TLS problem reported before it decides the kind.
http::Error ErrorOf(DWORD code, DWORD secureFailureFlags, const RequestPlan& spec) {
  const bool elsewhere = !spec.connectHost.empty();
  const std::string host = elsewhere ? spec.connectHost : spec.host;
  const int32_t port = elsewhere && spec.connectPort != 0 ? spec.connectPort : spec.port;
  http::Error error;
  if (secureFailureFlags != 0) {
    const std::string problem = CertificateProblem(secureFailureFlags);
    error = problem.empty() ? TlsFailure("secure failure flags " + std::to_string(secureFailureFlags))
                            : CertificateFailure(problem);
  } else if (code == ERROR_WINHTTP_NAME_NOT_RESOLVED) {
    // WinHTTP does not say which name it could not resolve.
    error = DnsFailure(host, false);
    if (!spec.proxy.empty()) error.message += " or proxy '" + spec.proxy + "'";
  } else if (code == ERROR_WINHTTP_CANNOT_CONNECT) {
    // WinHTTP does not tell a refusal from an unreachable host.
    error = spec.proxy.empty() ? ConnectFailure("connection refused or host unreachable", host, port)
                               : ConnectFailure("cannot connect to the proxy", spec.proxy, 0);
  } else if (code == ERROR_WINHTTP_TIMEOUT) {
    error = OpenTimeout(spec.openTimeoutMs);
  } else {
    error = Failure(KindOf(code), "WinHTTP error " + std::to_string(code));
    if (error.kind == ErrorKind::kTlsFailure) error = TlsFailure(error.message);
  }
  error.detail = std::to_string(code);
  return error;
}

std::wstring QueryText(HINTERNET request, DWORD what) {
  DWORD bytes = 0;
  WinHttpQueryHeaders(request, what, WINHTTP_HEADER_NAME_BY_INDEX, WINHTTP_NO_OUTPUT_BUFFER, &bytes,
                      WINHTTP_NO_HEADER_INDEX);
  if (bytes == 0) return std::wstring();
  std::wstring text(bytes / sizeof(wchar_t), L'\0');
  if (!WinHttpQueryHeaders(request, what, WINHTTP_HEADER_NAME_BY_INDEX, &text[0], &bytes,
                           WINHTTP_NO_HEADER_INDEX)) {
    return std::wstring();
  }
  text.resize(bytes / sizeof(wchar_t));
  return text;
}

// "[::1]" names the host ::1 to WinHTTP.
std::string BareHost(const std::string& host) {
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') return host.substr(1, host.size() - 2);
  return host;
}

}  // namespace

WinHttpCall::WinHttpCall(std::weak_ptr<WinHttpTransport> transport, WinHttpTransport* owner,
                         std::shared_ptr<WinHttpInbox> inbox, RequestPlan spec)
    : CallBase(std::move(spec)), transport_(std::move(transport)), owner_(owner), inbox_(std::move(inbox)) {}

WinHttpCall::~WinHttpCall() = default;

void CALLBACK WinHttpCall::StatusCallback(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID info,
                                          DWORD length) {
  if (context == 0) return;  // the session and connect handles carry no call
  WinHttpCall* call = reinterpret_cast<WinHttpCall*>(context);
  WinHttpEvent event;
  event.handle = handle;
  event.status = status;
  event.length = length;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      event.error = static_cast<WINHTTP_ASYNC_RESULT*>(info)->dwError;
      break;
    case WINHTTP_CALLBACK_STATUS_SECURE_FAILURE:
      event.error = info != nullptr ? *static_cast<DWORD*>(info) : 1;
      break;
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
      event.length = *static_cast<DWORD*>(info);
      break;
    case WINHTTP_CALLBACK_STATUS_NAME_RESOLVED:
    case WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER:
    case WINHTTP_CALLBACK_STATUS_REDIRECT:
      if (info != nullptr) event.text = static_cast<const wchar_t*>(info);
      break;
    case WINHTTP_CALLBACK_STATUS_RESOLVING_NAME:
    case WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER:
    case WINHTTP_CALLBACK_STATUS_HANDLE_CREATED:
      return;
    default:
      break;
  }
  call->inbox_->PostEvent([call, event] { call->OnEvent(event); });
}

bool WinHttpCall::PostTask(std::function<void()> task) {
  std::shared_ptr<WinHttpTransport> transport = transport_.lock();
  return transport != nullptr && transport->Post(std::move(task));
}

void WinHttpCall::Begin() {
  if (Silenced()) {
    FinishCancelled();
    return;
  }
  owner_->Track(Self());
  if (Spec().invalid.IsError()) {
    Fail(Spec().invalid);
    return;
  }
  if (!Spec().caFile.empty()) {
    Fail(Failure(ErrorKind::kInvalidRequest,
                 "a CA file is not supported on Windows; add the authority to the system's certificate store"));
    return;
  }
  buffer_.resize(kReadBufferBytes);
  effectiveUrl_ = Spec().url;
  StartAttempt();
}

void WinHttpCall::StartAttempt() {
  connectedThisAttempt_ = false;
  secureFailureFlags_ = 0;
  readPending_ = false;
  readWanted_ = false;
  bodyBytes_ = 0;
  attemptStart_ = Clock::now();
  if (!OpenRequest()) {
    Fail(ErrorOf(GetLastError(), 0, Spec()));
    return;
  }
  stage_ = Stage::kTransferring;
  DWORD_PTR context = reinterpret_cast<DWORD_PTR>(this);
  if (!WinHttpSendRequest(request_, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, context)) {
    FailOrRetry(ErrorOf(GetLastError(), secureFailureFlags_, Spec()));
  }
}

bool WinHttpCall::OpenRequest() {
  const RequestPlan& spec = Spec();
  const bool elsewhere = !spec.connectHost.empty();
  const std::string host = BareHost(elsewhere ? spec.connectHost : spec.host);
  const int32_t port = elsewhere && spec.connectPort != 0 ? spec.connectPort : spec.port;
  connect_ = WinHttpConnect(owner_->Session(), Wide(host).c_str(), static_cast<INTERNET_PORT>(port), 0);
  if (connect_ == nullptr) return false;
  const wchar_t* verb = spec.type == http::RequestType::kHead ? L"HEAD" : L"GET";
  request_ = WinHttpOpenRequest(connect_, verb, Wide(spec.pathAndQuery).c_str(), nullptr, WINHTTP_NO_REFERER,
                                WINHTTP_DEFAULT_ACCEPT_TYPES, spec.secure ? WINHTTP_FLAG_SECURE : 0);
  if (request_ == nullptr) return false;
  ++openRequestHandles_;
  DWORD_PTR context = reinterpret_cast<DWORD_PTR>(this);
  WinHttpSetOption(request_, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context));
  DWORD maxRedirects = RequestPlan::kMaxRedirects;
  WinHttpSetOption(request_, WINHTTP_OPTION_MAX_HTTP_AUTOMATIC_REDIRECTS, &maxRedirects, sizeof(maxRedirects));
  // Older systems do not know HTTP/2; they answer false and stay on HTTP/1.1.
  DWORD protocols = WINHTTP_PROTOCOL_FLAG_HTTP2;
  WinHttpSetOption(request_, WINHTTP_OPTION_ENABLE_HTTP_PROTOCOL, &protocols, sizeof(protocols));
  // The open and stall time-outs are this call's own deadlines; WinHTTP's
  // are set to match only to bound how long it may keep a closed handle busy.
  DWORD openTimeout = spec.openTimeoutMs > 0 ? static_cast<DWORD>(spec.openTimeoutMs) : kInfiniteTimeout;
  WinHttpSetTimeouts(request_, kInfiniteTimeout, openTimeout, openTimeout, openTimeout);
  WinHttpSetOption(request_, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &openTimeout, sizeof(openTimeout));

  if (!ApplyProxyAndTls()) return false;

  std::string headerLines;
  for (const http::Headers::Field& field : spec.headers.Fields()) {
    headerLines += field.first + ": " + field.second + "\r\n";
  }
  if (elsewhere && !spec.headers.Has("Host")) {
    const bool defaultPort = spec.port == (spec.secure ? 443 : 80);
    headerLines += "Host: " + spec.host + (defaultPort ? "" : ":" + std::to_string(spec.port)) + "\r\n";
  }
  return headerLines.empty() ||
         WinHttpAddRequestHeaders(request_, Wide(headerLines).c_str(), static_cast<DWORD>(-1),
                                  WINHTTP_ADDREQ_FLAG_ADD | WINHTTP_ADDREQ_FLAG_REPLACE);
}

bool WinHttpCall::ApplyProxyAndTls() {
  const RequestPlan& spec = Spec();
  // Without either, the session's default stands: the system's WinHTTP proxy setting.
  if (spec.directOnly || !spec.proxy.empty()) {
    std::wstring proxy = Wide(spec.proxy);
    WINHTTP_PROXY_INFO info = {};
    info.dwAccessType = spec.directOnly ? WINHTTP_ACCESS_TYPE_NO_PROXY : WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    info.lpszProxy = spec.directOnly ? WINHTTP_NO_PROXY_NAME : &proxy[0];
    info.lpszProxyBypass = WINHTTP_NO_PROXY_BYPASS;
    if (!WinHttpSetOption(request_, WINHTTP_OPTION_PROXY, &info, sizeof(info))) return false;
  }
  if (spec.secure && !spec.verifyTls) {
    DWORD ignore = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                   SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;
    if (!WinHttpSetOption(request_, WINHTTP_OPTION_SECURITY_FLAGS, &ignore, sizeof(ignore))) return false;
  }
  return true;
}

void WinHttpCall::CloseHandles() {
  if (request_ != nullptr) WinHttpCloseHandle(request_);
  if (connect_ != nullptr) WinHttpCloseHandle(connect_);
  request_ = nullptr;
  connect_ = nullptr;
  readPending_ = false;
}

void WinHttpCall::Untrack() {
  if (stage_ == Stage::kDone && openRequestHandles_ == 0) owner_->Untrack(this);
}

void WinHttpCall::StopForCancel() {
  if (stage_ == Stage::kNotBegun) return;  // Begin, still queued, ends it.
  std::shared_ptr<WinHttpCall> self = Self();
  CloseHandles();
  stage_ = Stage::kDone;
  FinishCancelled();
  Untrack();
}

void WinHttpCall::AbortForShutdown() {
  std::shared_ptr<WinHttpCall> self = Self();
  http::Error error = Failure(ErrorKind::kCancelled, "client shut down");
  Fail(error);
}

void WinHttpCall::ApplyPause() {
  if (stage_ == Stage::kDone || IsPaused()) return;
  lastProgress_ = Clock::now();
  ReadNext();
}

void WinHttpCall::OnEvent(const WinHttpEvent& event) {
  std::shared_ptr<WinHttpCall> self = Self();
  if (event.status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
    --openRequestHandles_;
    Untrack();
    return;
  }
  if (event.handle != request_ || Finished()) return;  // a closed attempt's leftovers
  const int64_t nowUs = MicrosSinceStart(Clock::now());
  switch (event.status) {
    case WINHTTP_CALLBACK_STATUS_NAME_RESOLVED:
      NoteAddressTried(Narrow(event.text));
      ReportPhase(http::StatusPhase::kDnsResolved, nowUs);
      break;
    case WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER:
      connectedThisAttempt_ = true;
      serverAddress_ = Narrow(event.text);
      ReportPhase(http::StatusPhase::kConnected, nowUs);
      break;
    case WINHTTP_CALLBACK_STATUS_REDIRECT:
      effectiveUrl_ = ResolveLocation(effectiveUrl_, Narrow(event.text));
      ReportPhase(http::StatusPhase::kRedirected, ++redirects_);
      break;
    case WINHTTP_CALLBACK_STATUS_SECURE_FAILURE:
      secureFailureFlags_ = event.error;
      break;
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
      if (!WinHttpReceiveResponse(request_, nullptr)) FailOrRetry(ErrorOf(GetLastError(), secureFailureFlags_, Spec()));
      break;
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      OnHeadersAvailable();
      break;
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
      OnDataAvailable(event.length);
      break;
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
      OnReadComplete(event.length);
      break;
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      readPending_ = false;
      FailOrRetry(ErrorOf(event.error, secureFailureFlags_, Spec()));
      break;
    default:
      break;
  }
}

void WinHttpCall::OnHeadersAvailable() {
  DWORD status = 0;
  DWORD size = sizeof(status);
  WinHttpQueryHeaders(request_, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                      WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
  ResponseHead head;
  http::Error refused;
  if (!ParseResponseHead(Narrow(QueryText(request_, WINHTTP_QUERY_RAW_HEADERS_CRLF)), &head, &refused)) {
    Fail(refused);
    return;
  }
  http::Headers headers = std::move(head.headers);
  const int32_t statusCode = static_cast<int32_t>(status);
  if (statusCode >= kRedirectClassBegin && statusCode < kRedirectClassEnd && headers.Has("Location")) {
    // WinHTTP follows redirects itself; one it hands back is one too many.
    Fail(Failure(ErrorKind::kTooManyRedirects, "more than " + std::to_string(RequestPlan::kMaxRedirects) +
                                                   " redirects"));
    return;
  }
  ReportPhase(http::StatusPhase::kFirstByte, MicrosSinceStart(Clock::now()));
  NoteConnection(serverAddress_, !connectedThisAttempt_);
  ResponseVerdict verdict = CheckResponse(Spec(), statusCode, std::move(headers), effectiveUrl_,
                                          serverAddress_);
  if (verdict.response == nullptr) {
    Fail(verdict.error);
    return;
  }
  contentLength_ = verdict.response->ContentLength();
  DWORD stallTimeout = Spec().stallTimeoutMs > 0 ? static_cast<DWORD>(Spec().stallTimeoutMs) : kInfiniteTimeout;
  WinHttpSetOption(request_, WINHTTP_OPTION_RECEIVE_TIMEOUT, &stallTimeout, sizeof(stallTimeout));
  lastProgress_ = Clock::now();
  readAt_ = lastProgress_;
  if (!DeliverResponse(std::move(verdict.response))) return;  // cancelled: its task closes the handles
  if (Spec().type == http::RequestType::kHead) {
    Complete();
    return;
  }
  readWanted_ = true;
  ReadNext();
}

void WinHttpCall::ReadNext() {
  if (!readWanted_ || readPending_ || Finished() || IsPaused() || request_ == nullptr) return;
  if (Spec().speedLimit > 0 && Clock::now() < readAt_) return;  // CheckDeadlines reads when it is time
  // A read is asked only for what has arrived, so that it never waits for a
  // full buffer while the server sends slowly.
  readPending_ = true;
  if (!WinHttpQueryDataAvailable(request_, nullptr)) {
    readPending_ = false;
    Fail(ErrorOf(GetLastError(), secureFailureFlags_, Spec()));
  }
}

void WinHttpCall::OnDataAvailable(DWORD bytesAvailable) {
  if (bytesAvailable == 0) {
    readPending_ = false;
    EndOfBody();
    return;
  }
  DWORD size = std::min(bytesAvailable, static_cast<DWORD>(buffer_.size()));
  const int64_t limit = Spec().speedLimit;
  if (limit > 0) size = static_cast<DWORD>(std::clamp<int64_t>(limit / kReadsPerSecondWhenLimited, 1, size));
  if (!WinHttpReadData(request_, buffer_.data(), size, nullptr)) {
    readPending_ = false;
    Fail(ErrorOf(GetLastError(), secureFailureFlags_, Spec()));
  }
}

void WinHttpCall::OnReadComplete(DWORD bytesRead) {
  readPending_ = false;
  if (bytesRead == 0) {
    EndOfBody();
    return;
  }
  bodyBytes_ += bytesRead;
  lastProgress_ = Clock::now();
  const int64_t limit = Spec().speedLimit;
  if (limit > 0) readAt_ += std::chrono::microseconds(static_cast<int64_t>(bytesRead) * 1000000 / limit);
  if (!DeliverBytes(buffer_.data(), bytesRead)) return;
  ReadNext();
}

void WinHttpCall::EndOfBody() {
  if (contentLength_ != http::Response::kUnknownSize && bodyBytes_ < contentLength_) {
    Fail(Failure(ErrorKind::kConnectionLost, "connection closed after " + std::to_string(bodyBytes_) + " of " +
                                                 std::to_string(contentLength_) + " bytes"));
  } else {
    Complete();
  }
}

void WinHttpCall::FailOrRetry(const http::Error& error) {
  if (!PlanRetry(error)) {
    Fail(error);
    return;
  }
  CloseHandles();
  stage_ = Stage::kBetweenAttempts;
}

void WinHttpCall::Fail(const http::Error& error) {
  CloseHandles();
  stage_ = Stage::kDone;
  FinishWithError(error);
  Untrack();
}

void WinHttpCall::Complete() {
  CloseHandles();
  stage_ = Stage::kDone;
  FinishComplete();
  Untrack();
}

WinHttpCall::Clock::time_point WinHttpCall::NextDeadline() const {
  Clock::time_point next = Clock::time_point::max();
  const RequestPlan& spec = Spec();
  if (stage_ == Stage::kDone || stage_ == Stage::kNotBegun) return next;
  if (stage_ == Stage::kBetweenAttempts) next = RetryAt();
  if (!Responded()) next = std::min(next, OpenDeadline());
  if (readPending_ && !IsPaused() && spec.stallTimeoutMs > 0) {
    next = std::min(next, lastProgress_ + std::chrono::milliseconds(spec.stallTimeoutMs));
  }
  if (readWanted_ && !readPending_ && !IsPaused() && spec.speedLimit > 0) next = std::min(next, readAt_);
  return next;
}

void WinHttpCall::CheckDeadlines(Clock::time_point now) {
  std::shared_ptr<WinHttpCall> self = Self();
  const RequestPlan& spec = Spec();
  if (stage_ == Stage::kDone) return;
  if (!Responded() && now >= OpenDeadline()) {
    Fail(OpenTimeout(spec.openTimeoutMs));
  } else if (readPending_ && !IsPaused() && spec.stallTimeoutMs > 0 &&
             now >= lastProgress_ + std::chrono::milliseconds(spec.stallTimeoutMs)) {
    Fail(StallTimeout(spec.stallTimeoutMs));
  } else if (stage_ == Stage::kBetweenAttempts && now >= RetryAt()) {
    ReportPhase(http::StatusPhase::kRetrying, RetriesUsed());
    if (!Silenced()) StartAttempt();
  } else {
    ReadNext();
  }
}

}  // namespace internal
}  // namespace wisp
