#include <downloader/Pipe/IConfigure.h>

namespace protocols {

IConfigure::~IConfigure() = default;

void IConfigure::Subscribe(const std::string& /*group*/) {}

void IConfigure::Unsubscribe(const std::string& /*group*/) {}

std::string IConfigure::GetDefaultValue(const std::string& /*group*/, const std::string& /*key*/,
                                        const std::string& defaultValue) {
  return defaultValue;
}

void IConfigure::Notify(const std::string& /*group*/, const std::string& /*key*/) {}

void IConfigure::Remove(const std::string& /*group*/, const std::string& /*key*/) {}

}  // namespace protocols
