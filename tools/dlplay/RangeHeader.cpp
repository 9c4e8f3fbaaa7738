#include "RangeHeader.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace dlplay {
namespace {

constexpr char kBytesUnit[] = "bytes=";

std::string Trim(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return std::string();
  size_t end = text.find_last_not_of(" \t");
  return text.substr(begin, end - begin + 1);
}

// All of `text` as a non-negative decimal number that fits in 63 bits.
bool ParseOffset(const std::string& text, int64_t* value) {
  if (text.empty()) return false;
  int64_t number = 0;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    int digit = c - '0';
    if (number > (std::numeric_limits<int64_t>::max() - digit) / 10) return false;
    number = number * 10 + digit;
  }
  *value = number;
  return true;
}

}  // namespace

ByteRangeRequest ParseRangeHeader(const std::string& value) {
  ByteRangeRequest ignored;
  std::string text = Trim(value);
  const size_t unitLength = sizeof(kBytesUnit) - 1;
  if (text.size() <= unitLength || text.compare(0, unitLength, kBytesUnit) != 0) return ignored;
  std::string spec = Trim(text.substr(unitLength));
  if (spec.find(',') != std::string::npos) return ignored;
  size_t dash = spec.find('-');
  if (dash == std::string::npos) return ignored;
  std::string firstText = Trim(spec.substr(0, dash));
  std::string lastText = Trim(spec.substr(dash + 1));
  ByteRangeRequest range;
  range.present = true;
  if (firstText.empty()) {
    return ParseOffset(lastText, &range.suffixLength) ? range : ignored;
  }
  if (!ParseOffset(firstText, &range.first)) return ignored;
  if (lastText.empty()) return range;
  if (!ParseOffset(lastText, &range.last) || range.last < range.first) return ignored;
  return range;
}

bool ResolveByteRange(const ByteRangeRequest& range, int64_t size, int64_t* start, int64_t* end) {
  if (!range.present) {
    *start = 0;
    *end = size - 1;
    return size > 0;
  }
  if (range.suffixLength >= 0) {
    if (range.suffixLength == 0 || size == 0) return false;
    *start = size - std::min(range.suffixLength, size);
    *end = size - 1;
    return true;
  }
  if (range.first >= size) return false;
  *start = range.first;
  *end = range.last < 0 ? size - 1 : std::min(range.last, size - 1);
  return true;
}

}  // namespace dlplay
