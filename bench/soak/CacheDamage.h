// Damage done to the cache's files between soak rounds, while no stream and
// no storage write is running: the library must serve around it, never from
// it. Only damage that the segment file format can tell is done: its chunk
// checksum is a fixed 0, so bytes changed inside a filled chunk's content,
// or a fill bit set for a chunk never written, would be served as they are.
// Hence bits are cleared in the fill bitmap only, and foreign bytes always
// start at the file's head (a foreign file in the resource's place).
//
// Not synchronised: the round thread alone calls it.
#ifndef BENCH_SOAK_CACHEDAMAGE_H_
#define BENCH_SOAK_CACHEDAMAGE_H_

#include <array>
#include <cstdint>
#include <random>
#include <string>

namespace soak {

enum class DamageKind {
  kTruncate,
  // Fill bits cleared: chunks that must be fetched again.
  kClearBits,
  kForeignBytes,
  // Removal keeps the network levels busy once every resource is cached.
  kRemove,
  kCount,
};

constexpr size_t kDamageKindCount = static_cast<size_t>(DamageKind::kCount);

const char* DamageName(DamageKind kind);

class CacheDamage {
 public:
  explicit CacheDamage(std::string root) : root_(std::move(root)) {}

  // Damages up to `files` files picked at random under the root.
  void DamageSome(std::mt19937_64& random, int files);

  const std::array<int64_t, kDamageKindCount>& counts() const { return counts_; }

 private:
  void Damage(std::mt19937_64& random, const std::string& path, DamageKind kind);

  std::string root_;
  std::array<int64_t, kDamageKindCount> counts_{};
};

}  // namespace soak

#endif  // BENCH_SOAK_CACHEDAMAGE_H_
