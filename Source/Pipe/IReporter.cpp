#include <downloader/Pipe/IReporter.h>

namespace protocols {

IReporter::~IReporter() = default;

}  // namespace protocols
