// Small text helpers for header parsing, shared by the backends.
#ifndef WISP_SRC_TEXTUTIL_H_
#define WISP_SRC_TEXTUTIL_H_

#include <cstdint>
#include <string_view>

namespace wisp {
namespace internal {

// Without leading and trailing spaces, tabs, CR and LF.
std::string_view Trim(std::string_view text);
bool StartsWithNoCase(std::string_view text, std::string_view prefix);
// A non-negative decimal integer that fits in int64_t, nothing else.
bool ParseDecimal(std::string_view text, int64_t* value);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_TEXTUTIL_H_
