#include "RedirectLocation.h"

#include <algorithm>

namespace wisp {
namespace internal {

std::string ResolveLocation(const std::string& base, const std::string& location) {
  if (location.find("://") != std::string::npos) return location;
  const size_t authorityStart = base.find("://") + 3;
  if (location.compare(0, 2, "//") == 0) return base.substr(0, authorityStart - 2) + location;
  const size_t pathStart = std::min(base.find_first_of("/?", authorityStart), base.size());
  if (!location.empty() && location.front() == '/') return base.substr(0, pathStart) + location;
  const size_t query = std::min(base.find('?', pathStart), base.size());
  const size_t lastSlash = base.rfind('/', query);
  const size_t directoryEnd = lastSlash == std::string::npos || lastSlash < pathStart ? pathStart : lastSlash;
  return base.substr(0, directoryEnd) + "/" + location;
}

}  // namespace internal
}  // namespace wisp
