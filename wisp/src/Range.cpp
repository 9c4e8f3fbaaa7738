#include <wisp/http/Range.h>

#include "TextUtil.h"

namespace wisp {
namespace http {

Range::Range(int64_t start, int64_t end)
    : start_(start < 0 ? 0 : start), end_(end < 0 ? kToEnd : end) {}

std::string Range::ToHeader() const {
  std::string value = "bytes=" + std::to_string(start_) + "-";
  if (end_ >= start_) value += std::to_string(end_);
  return value;
}

bool Range::Parse(const std::string& value, Range* range) {
  std::string_view text = internal::Trim(value);
  constexpr std::string_view kUnit = "bytes=";
  if (!internal::StartsWithNoCase(text, kUnit)) return false;
  text.remove_prefix(kUnit.size());
  size_t dash = text.find('-');
  if (dash == std::string_view::npos) return false;
  int64_t start = 0;
  if (!internal::ParseDecimal(internal::Trim(text.substr(0, dash)), &start)) return false;
  std::string_view endText = internal::Trim(text.substr(dash + 1));
  int64_t end = kToEnd;
  if (!endText.empty() && (!internal::ParseDecimal(endText, &end) || end < start)) return false;
  *range = Range(start, end);
  return true;
}

}  // namespace http
}  // namespace wisp
