#include "Transport.h"

#include <algorithm>

namespace wisp {
namespace internal {

Transport::~Transport() = default;

void AddAddress(std::vector<std::string>* addresses, const std::string& numeric) {
  if (std::find(addresses->begin(), addresses->end(), numeric) == addresses->end()) {
    addresses->push_back(numeric);
  }
}

void PutIPv4First(std::vector<std::string>* addresses) {
  std::stable_partition(addresses->begin(), addresses->end(),
                        [](const std::string& address) { return address.find(':') == std::string::npos; });
}

}  // namespace internal
}  // namespace wisp
