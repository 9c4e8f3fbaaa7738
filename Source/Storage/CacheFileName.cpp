#include "Storage/CacheFileName.h"

#include "Base/Sha256.h"

namespace downloader {
namespace storage {
namespace {

// Digits of the largest 64-bit value: the default identifier's longest ID.
constexpr size_t kLongestDecimalId = 20;
// Half the digest: short names, still no collision in any real cache.
constexpr size_t kHashedNameDigits = 32;
constexpr char kHashedNamePrefix = 'h';

bool IsDecimalId(const std::string& id) {
  return !id.empty() && id.size() <= kLongestDecimalId && id.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string CacheFileName::FromId(const std::string& id) {
  if (IsDecimalId(id)) return id;
  Sha256 hash;
  hash.Update(id);
  return kHashedNamePrefix + hash.FinalHex().substr(0, kHashedNameDigits);
}

}  // namespace storage
}  // namespace downloader
