#include "TextTrim.h"

namespace dlplay {
namespace {

constexpr char kBlanks[] = " \t\r";

}  // namespace

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

}  // namespace dlplay
