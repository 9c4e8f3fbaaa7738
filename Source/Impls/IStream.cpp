#include <downloader/Impls/IStream.h>

namespace downloader {

IStream::IStream() = default;

IStream::~IStream() = default;

}  // namespace downloader
