#include <wisp/http/Options.h>

#include "TextUtil.h"

namespace wisp {
namespace http {

void Options::Set(const std::string& key, const std::string& value) { values_[key] = value; }

void Options::Set(const std::string& key, int64_t value) { values_[key] = std::to_string(value); }

bool Options::Has(const std::string& key) const { return values_.count(key) != 0; }

std::string Options::Get(const std::string& key, const std::string& fallback) const {
  auto found = values_.find(key);
  return found == values_.end() ? fallback : found->second;
}

int64_t Options::GetInt(const std::string& key, int64_t fallback) const {
  auto found = values_.find(key);
  if (found == values_.end()) return fallback;
  std::string_view text = internal::Trim(found->second);
  bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  int64_t value = 0;
  if (!internal::ParseDecimal(text, &value)) return fallback;
  return negative ? -value : value;
}

}  // namespace http
}  // namespace wisp
