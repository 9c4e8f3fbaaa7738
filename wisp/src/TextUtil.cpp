#include "TextUtil.h"

#include <cctype>
#include <limits>

namespace wisp {
namespace internal {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) !=
        std::tolower(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

bool ParseDecimal(std::string_view text, int64_t* value) {
  if (text.empty()) return false;
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  int64_t result = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    int digit = c - '0';
    if (result > (kMax - digit) / 10) return false;
    result = result * 10 + digit;
  }
  *value = result;
  return true;
}

}  // namespace internal
}  // namespace wisp
