// The content of dlorigin's synthetic resources: the byte at offset o of the
// resource at URL path p is a fixed function of p and o, so that a test can
// check any byte it received without a file to compare against.
//
// Header-only; shared by dlorigin and the tests.
#ifndef TOOLS_DLORIGIN_SYNTHETICCONTENT_H_
#define TOOLS_DLORIGIN_SYNTHETICCONTENT_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace dlorigin {

// FNV-1a of the path: the seed of a resource.
inline uint64_t SyntheticSeed(std::string_view path) {
  uint64_t hash = 14695981039346656037ULL;
  for (char c : path) {
    hash ^= static_cast<uint8_t>(c);
    hash *= 1099511628211ULL;
  }
  return hash;
}

// splitmix64 of the seed and the index of the 8-byte word holding the byte.
inline uint64_t SyntheticWord(uint64_t seed, uint64_t wordIndex) {
  uint64_t z = seed + (wordIndex + 1) * 0x9e3779b97f4a7c15ULL;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

inline uint8_t SyntheticByte(uint64_t seed, uint64_t offset) {
  return static_cast<uint8_t>(SyntheticWord(seed, offset >> 3) >> ((offset & 7) * 8));
}

inline void FillSynthetic(uint64_t seed, uint64_t offset, uint8_t* out, size_t length) {
  size_t done = 0;
  while (done < length && ((offset + done) & 7) != 0) {
    out[done] = SyntheticByte(seed, offset + done);
    ++done;
  }
  for (; done + 8 <= length; done += 8) {
    uint64_t word = SyntheticWord(seed, (offset + done) >> 3);
    for (int i = 0; i < 8; ++i) out[done + i] = static_cast<uint8_t>(word >> (i * 8));
  }
  for (; done < length; ++done) out[done] = SyntheticByte(seed, offset + done);
}

// Index of the first byte of `data` that differs from the resource's bytes at
// `offset`; `length` when all match.
inline size_t FirstSyntheticMismatch(uint64_t seed, uint64_t offset, const uint8_t* data,
                                     size_t length) {
  for (size_t i = 0; i < length; ++i) {
    if (data[i] != SyntheticByte(seed, offset + i)) return i;
  }
  return length;
}

}  // namespace dlorigin

#endif  // TOOLS_DLORIGIN_SYNTHETICCONTENT_H_
