// The resource the kill test's victim writes and its parent checks.
#ifndef TESTS_STORAGE_KILLTESTRESOURCE_H_
#define TESTS_STORAGE_KILLTESTRESOURCE_H_

#include <cstdint>

namespace dltest {

constexpr uint32_t kKillResourceSeed = 77;
constexpr uint64_t kKillChunkSize = 131072;
// 48 whole chunks and a short one.
constexpr uint64_t kKillResourceSize = 48 * kKillChunkSize + 12345;

}  // namespace dltest

#endif  // TESTS_STORAGE_KILLTESTRESOURCE_H_
