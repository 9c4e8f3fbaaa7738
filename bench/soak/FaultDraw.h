// The fault a soak request asks dlorigin for, drawn at random from every kind
// the origin knows, as the query text that asks for it.
//
// Not synchronised: each stream thread draws with its own generator.
#ifndef BENCH_SOAK_FAULTDRAW_H_
#define BENCH_SOAK_FAULTDRAW_H_

#include <array>
#include <cstdint>
#include <random>
#include <string>

namespace soak {

enum class FaultKind {
  kNone,
  kStatus,
  kForbiddenDetail,
  kDelay,
  kDrop,
  kStall,
  kSlow,
  kIgnoreRange,
  kWrongContentRange,
  kRedirects,
  kChunked,
  kPcdn,
  kCount,
};

constexpr size_t kFaultKindCount = static_cast<size_t>(FaultKind::kCount);

const char* FaultName(FaultKind kind);

struct Fault {
  FaultKind kind = FaultKind::kNone;
  // Appended to the resource's URL after "&"; empty for none.
  std::string query;
  // Whether the stream is to try the peer-CDN level first.
  bool pcdnFirst = false;
};

// `size` is the resource's; `readTimeoutMs` bounds the delays drawn, so that
// a delay is a fault the stream rides out rather than a hang.
Fault DrawFault(std::mt19937_64& random, int64_t size, int64_t readTimeoutMs, bool pcdnWired);

}  // namespace soak

#endif  // BENCH_SOAK_FAULTDRAW_H_
