#include "Base/Sha256.h"

#include <algorithm>
#include <cstring>

namespace downloader {
namespace {

constexpr uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr uint32_t RotateRight(uint32_t value, int bits) { return (value >> bits) | (value << (32 - bits)); }

uint32_t LoadBigEndian(const uint8_t* bytes) {
  return (static_cast<uint32_t>(bytes[0]) << 24) | (static_cast<uint32_t>(bytes[1]) << 16) |
         (static_cast<uint32_t>(bytes[2]) << 8) | static_cast<uint32_t>(bytes[3]);
}

}  // namespace

Sha256::Sha256()
    : state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19} {}

void Sha256::Update(const void* data, size_t length) {
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  totalBytes_ += length;
  if (pendingBytes_ > 0) {
    size_t taken = std::min(length, kBlockBytes - pendingBytes_);
    std::memcpy(pending_.data() + pendingBytes_, bytes, taken);
    pendingBytes_ += taken;
    bytes += taken;
    length -= taken;
    if (pendingBytes_ < kBlockBytes) return;
    Compress(pending_.data());
    pendingBytes_ = 0;
  }
  for (; length >= kBlockBytes; bytes += kBlockBytes, length -= kBlockBytes) Compress(bytes);
  std::memcpy(pending_.data(), bytes, length);
  pendingBytes_ = length;
}

std::string Sha256::FinalHex() {
  const uint64_t totalBits = totalBytes_ * 8;
  const uint8_t marker = 0x80;
  Update(&marker, 1);
  const uint8_t zero = 0;
  while (pendingBytes_ != kBlockBytes - 8) Update(&zero, 1);
  uint8_t lengthBytes[8];
  for (int i = 0; i < 8; ++i) lengthBytes[i] = static_cast<uint8_t>(totalBits >> (56 - 8 * i));
  Update(lengthBytes, sizeof(lengthBytes));

  static const char kHexDigits[] = "0123456789abcdef";
  std::string hex;
  for (uint32_t word : state_) {
    for (int shift = 28; shift >= 0; shift -= 4) hex.push_back(kHexDigits[(word >> shift) & 0xF]);
  }
  return hex;
}

void Sha256::Compress(const uint8_t* block) {
  uint32_t schedule[64];
  for (int i = 0; i < 16; ++i) schedule[i] = LoadBigEndian(block + 4 * i);
  for (int i = 16; i < 64; ++i) {
    uint32_t s0 = RotateRight(schedule[i - 15], 7) ^ RotateRight(schedule[i - 15], 18) ^ (schedule[i - 15] >> 3);
    uint32_t s1 = RotateRight(schedule[i - 2], 17) ^ RotateRight(schedule[i - 2], 19) ^ (schedule[i - 2] >> 10);
    schedule[i] = schedule[i - 16] + s0 + schedule[i - 7] + s1;
  }
  uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
  uint32_t e = state_[4], f = state_[5], g = state_[6], h = state_[7];
  for (int i = 0; i < 64; ++i) {
    uint32_t sum1 = RotateRight(e, 6) ^ RotateRight(e, 11) ^ RotateRight(e, 25);
    uint32_t choose = (e & f) ^ (~e & g);
    uint32_t temp1 = h + sum1 + choose + kRoundConstants[i] + schedule[i];
    uint32_t sum0 = RotateRight(a, 2) ^ RotateRight(a, 13) ^ RotateRight(a, 22);
    uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
    uint32_t temp2 = sum0 + majority;
    h = g;
    g = f;
    f = e;
    e = d + temp1;
    d = c;
    c = b;
    b = a;
    a = temp1 + temp2;
  }
  state_[0] += a;
  state_[1] += b;
  state_[2] += c;
  state_[3] += d;
  state_[4] += e;
  state_[5] += f;
  state_[6] += g;
  state_[7] += h;
}

}  // namespace downloader
