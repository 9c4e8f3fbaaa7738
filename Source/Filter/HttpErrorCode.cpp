#include "Filter/HttpErrorCode.h"

#include <cerrno>
#include <cstdlib>
#include <map>

namespace downloader {
namespace {

using wisp::http::ErrorKind;

// Kinds of the network library that have rows of their own.
constexpr int32_t kHttpStatusKind = static_cast<int32_t>(ErrorKind::kHttpStatus);
constexpr int32_t kRangeKind = static_cast<int32_t>(ErrorKind::kRangeNotHonoured);
constexpr int32_t kTimeoutKind = static_cast<int32_t>(ErrorKind::kTimeout);
static_assert(kHttpStatusKind == 5 && kRangeKind == 7 && kTimeoutKind == 9, "kind numbers are stable");

// "C6NN" for the CDN's detail 4036NN.
constexpr int64_t CdnDetailCode(int detail) {
  return FourCharSubCode('C', '6', static_cast<char>('0' + detail / 10), static_cast<char>('0' + detail % 10));
}

int64_t HttpStatusCode(int32_t status) {
  switch (status) {
    case 1: return FourCharSubCode('H', '1', '0', '0');
    case 404: return FourCharSubCode('H', '4', '0', '4');
    case 416: return FourCharSubCode('H', '4', '1', '6');
    case 501: return FourCharSubCode('H', '4', '0', '0');
    case 502: return FourCharSubCode('H', '5', '0', '2');
    default: return FourCharSubCode('H', '5', 'X', 'X');
  }
}

}  // namespace

int64_t HttpErrorCode::FromError(const wisp::http::Error& error) {
  const int32_t kind = static_cast<int32_t>(error.kind);
  if (kind == 0) return 0;
  if (kind == kHttpStatusKind) {
    return error.status == 403 ? ForbiddenDetail(error.detail) : HttpStatusCode(error.status);
  }
  if (kind == kRangeKind) return FourCharSubCode('H', 'O', 'R', 'D');
  if (kind == kTimeoutKind) return kTimeout;
  if (error.kind == ErrorKind::kResponseRefused) return kResponseRefused;
  return FourCharSubCode('H', '4', 'X', 'X');
}

int64_t HttpErrorCode::ForbiddenDetail(const std::string& detail) {
  static const std::map<long long, int64_t> kDetails = [] {
    std::map<long long, int64_t> details{{403000, kForbidden}};
    for (int index = 1; index <= 12; ++index) details.emplace(403600 + index, CdnDetailCode(index));
    return details;
  }();
  errno = 0;
  char* end = nullptr;
  long long value = std::strtoll(detail.c_str(), &end, 10);
  if (end == detail.c_str() || errno != 0) return kForbidden;
  auto found = kDetails.find(value);
  return found == kDetails.end() ? kForbidden : found->second;
}

std::string HttpErrorCode::Reason(const wisp::http::Error& error) {
  if (!error.IsError()) return std::string();
  if (!error.message.empty()) return error.message;
  if (error.kind == ErrorKind::kHttpStatus) return "HTTP " + std::to_string(error.status);
  return wisp::http::ErrorKindName(error.kind);
}

}  // namespace downloader
