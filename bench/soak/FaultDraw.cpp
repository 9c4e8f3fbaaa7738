#include "FaultDraw.h"

namespace soak {
namespace {

// One more than the client follows, so that some chains are refused.
constexpr int64_t kMostRedirects = 6;
constexpr int64_t kSlowestRate = 256 * 1024;
constexpr int64_t kFastestSlowRate = 4 * 1024 * 1024;
constexpr int64_t kMostRangeShift = 4096;

int64_t Between(std::mt19937_64& random, int64_t low, int64_t high) {
  return std::uniform_int_distribution<int64_t>(low, high)(random);
}

// Faults that only bite on a ranged request need one: a drop makes the stream
// come back with a Range header for the rest.
std::string WithResume(std::mt19937_64& random, int64_t size, std::string query) {
  return query + "&drop_after=" + std::to_string(Between(random, 1, size));
}

}  // namespace

const char* FaultName(FaultKind kind) {
  static constexpr std::array<const char*, kFaultKindCount> kNames = {
      "none", "status", "403_detail", "delay", "drop", "stall", "slow", "ignore_range", "wrong_content_range",
      "redirects", "chunked", "pcdn"};
  return kNames[static_cast<size_t>(kind)];
}

Fault DrawFault(std::mt19937_64& random, int64_t size, int64_t readTimeoutMs, bool pcdnWired) {
  static constexpr std::array<int, 4> kStatuses = {404, 416, 500, 503};
  Fault fault;
  const size_t kinds = pcdnWired ? kFaultKindCount : kFaultKindCount - 1;
  fault.kind = static_cast<FaultKind>(Between(random, 0, static_cast<int64_t>(kinds) - 1));
  switch (fault.kind) {
    case FaultKind::kNone:
    case FaultKind::kCount:
      break;
    case FaultKind::kStatus:
      fault.query = "status=" + std::to_string(kStatuses[Between(random, 0, kStatuses.size() - 1)]);
      break;
    case FaultKind::kForbiddenDetail:
      fault.query = "status=403&xerr=soak-" + std::to_string(Between(random, 1, 999));
      break;
    case FaultKind::kDelay:
      fault.query = "delay_ms=" + std::to_string(Between(random, 0, readTimeoutMs / 2));
      break;
    case FaultKind::kDrop:
      fault.query = "drop_after=" + std::to_string(Between(random, 0, size));
      break;
    case FaultKind::kStall:
      fault.query = "stall_after=" + std::to_string(Between(random, 0, size));
      break;
    case FaultKind::kSlow:
      fault.query = "rate=" + std::to_string(Between(random, kSlowestRate, kFastestSlowRate));
      break;
    case FaultKind::kIgnoreRange:
      fault.query = WithResume(random, size, "ignore_range=1");
      break;
    case FaultKind::kWrongContentRange:
      fault.query = WithResume(random, size, "range_shift=" + std::to_string(Between(random, 1, kMostRangeShift)));
      break;
    case FaultKind::kRedirects:
      fault.query = "redirects=" + std::to_string(Between(random, 1, kMostRedirects));
      break;
    case FaultKind::kChunked:
      fault.query = "chunked=1";
      if (Between(random, 0, 1) == 1) fault.query = WithResume(random, size, fault.query);
      break;
    case FaultKind::kPcdn:
      fault.pcdnFirst = true;
      break;
  }
  return fault;
}

}  // namespace soak
