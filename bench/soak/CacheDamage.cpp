#include "CacheDamage.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>
#include <vector>

namespace soak {
namespace {

constexpr int64_t kMostForeignBytes = 64 * 1024;
constexpr int kMostClearedBytes = 16;

int64_t Between(std::mt19937_64& random, int64_t low, int64_t high) {
  return std::uniform_int_distribution<int64_t>(low, high)(random);
}

std::vector<std::string> FilesUnder(const std::string& root) {
  std::vector<std::string> files;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(root, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_regular_file(error)) files.push_back(it->path().string());
  }
  return files;
}

// The segment file's head: magic, content size, bitmap size, chunk size
// (little-endian 32-bit each), then the fill bitmap.
constexpr off_t kHeadBytes = 16;
constexpr off_t kBitmapSizeAt = 8;

void ClearBits(std::mt19937_64& random, int fd) {
  uint8_t field[4] = {};
  if (pread(fd, field, sizeof(field), kBitmapSizeAt) != static_cast<ssize_t>(sizeof(field))) return;
  const int64_t bitmapBytes = field[0] | field[1] << 8 | field[2] << 16 | static_cast<int64_t>(field[3]) << 24;
  if (bitmapBytes == 0) return;
  for (int i = Between(random, 1, kMostClearedBytes); i > 0; --i) {
    off_t at = kHeadBytes + Between(random, 0, bitmapBytes - 1);
    uint8_t byte = 0;
    if (pread(fd, &byte, 1, at) != 1) return;
    byte &= static_cast<uint8_t>(random());
    if (pwrite(fd, &byte, 1, at) != 1) return;
  }
}

void WriteForeignBytes(std::mt19937_64& random, int fd, int64_t size) {
  int64_t length = Between(random, 1, std::min(size, kMostForeignBytes));
  std::vector<uint8_t> bytes(static_cast<size_t>(length));
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  (void)!pwrite(fd, bytes.data(), bytes.size(), 0);
}

}  // namespace

const char* DamageName(DamageKind kind) {
  static constexpr std::array<const char*, kDamageKindCount> kNames = {"truncate", "clear_bits", "foreign_bytes",
                                                                        "remove"};
  return kNames[static_cast<size_t>(kind)];
}

void CacheDamage::DamageSome(std::mt19937_64& random, int files) {
  std::vector<std::string> paths = FilesUnder(root_);
  for (int i = 0; i < files && !paths.empty(); ++i) {
    size_t pick = static_cast<size_t>(Between(random, 0, static_cast<int64_t>(paths.size()) - 1));
    auto kind = static_cast<DamageKind>(Between(random, 0, kDamageKindCount - 1));
    Damage(random, paths[pick], kind);
    paths.erase(paths.begin() + static_cast<std::ptrdiff_t>(pick));
  }
}

void CacheDamage::Damage(std::mt19937_64& random, const std::string& path, DamageKind kind) {
  std::error_code error;
  if (kind == DamageKind::kRemove) {
    if (std::filesystem::remove(path, error)) ++counts_[static_cast<size_t>(kind)];
    return;
  }
  int64_t size = static_cast<int64_t>(std::filesystem::file_size(path, error));
  if (error || size == 0) return;
  int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  switch (kind) {
    case DamageKind::kTruncate:
      (void)!ftruncate(fd, Between(random, 0, size - 1));
      break;
    case DamageKind::kClearBits:
      ClearBits(random, fd);
      break;
    case DamageKind::kForeignBytes:
      WriteForeignBytes(random, fd, size);
      break;
    case DamageKind::kRemove:
    case DamageKind::kCount:
      break;
  }
  close(fd);
  ++counts_[static_cast<size_t>(kind)];
}

}  // namespace soak
