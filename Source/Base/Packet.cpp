#include <downloader/Base/Packet.h>

#include <cstring>
#include <new>

namespace downloader {
namespace {
constexpr uint64_t kClearedPrefixBytes = 8;
}  // namespace

Packet::Packet(uint64_t size) : size_(size) {}

Packet& Packet::operator=(const Packet& other) {
  size_ = other.size_;
  buffer_ = other.buffer_;
  borrowed_ = other.borrowed_;
  return *this;
}

Packet::~Packet() { Free(); }

void Packet::Alloc() {
  if (size_ == 0) return;
  buffer_ = new (std::nothrow) uint8_t[size_];
  borrowed_ = false;
}

void Packet::Free() {
  if (buffer_ == nullptr || borrowed_) return;
  delete[] buffer_;
  buffer_ = nullptr;
}

void Packet::SetBuffer(void* buffer) {
  Free();
  buffer_ = static_cast<uint8_t*>(buffer);
  borrowed_ = true;
}

void Packet::Clear() {
  if (buffer_ == nullptr) return;
  uint64_t count = size_ < kClearedPrefixBytes ? size_ : kClearedPrefixBytes;
  std::memset(buffer_, 0, count);
}

}  // namespace downloader
