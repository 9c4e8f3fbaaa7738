// Four-character failure sub-codes: the negative of four ASCII bytes read as
// a little-endian 32-bit integer, so that a log reader can spell the reason
// back ("H404", "OOPE", "RNLU").
#ifndef DOWNLOADER_FILTER_SUBCODE_H_
#define DOWNLOADER_FILTER_SUBCODE_H_

#include <cstdint>
#include <string>

namespace downloader {

constexpr int64_t FourCharSubCode(char first, char second, char third, char fourth) {
  return -static_cast<int64_t>(static_cast<int32_t>(
      static_cast<uint32_t>(static_cast<uint8_t>(first)) |
      (static_cast<uint32_t>(static_cast<uint8_t>(second)) << 8) |
      (static_cast<uint32_t>(static_cast<uint8_t>(third)) << 16) |
      (static_cast<uint32_t>(static_cast<uint8_t>(fourth)) << 24)));
}

// "H404" for FourCharSubCode('H','4','0','4'); "" when the value is not one.
inline std::string SubCodeTag(int64_t subCode) {
  if (subCode >= 0 || subCode < INT32_MIN) return std::string();
  uint32_t bytes = static_cast<uint32_t>(static_cast<int32_t>(-subCode));
  std::string tag;
  for (int shift = 0; shift < 32; shift += 8) {
    char c = static_cast<char>((bytes >> shift) & 0xFF);
    if (c < 0x20 || c > 0x7E) return std::string();
    tag.push_back(c);
  }
  return tag;
}

static_assert(FourCharSubCode('H', '4', '0', '4') == -875574344, "four-character code layout");
static_assert(FourCharSubCode('R', 'N', 'L', 'U') == -1431064146, "four-character code layout");

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_SUBCODE_H_
