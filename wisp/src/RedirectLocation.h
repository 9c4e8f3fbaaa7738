// The URL that a redirect's Location names, seen from the URL that answered
// it. Servers send Location as they like: absolute, scheme-relative
// ("//host/x"), absolute-path ("/x") or relative ("x", "../x"); a backend that
// hands it over unresolved (WinHTTP) resolves it here.
#ifndef WISP_SRC_REDIRECTLOCATION_H_
#define WISP_SRC_REDIRECTLOCATION_H_

#include <string>

namespace wisp {
namespace internal {

// `base` is an absolute URL ("scheme://authority/path?query").
std::string ResolveLocation(const std::string& base, const std::string& location);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_REDIRECTLOCATION_H_
