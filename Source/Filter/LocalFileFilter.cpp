#include <downloader/Filter/LocalFileFilter.h>

#include <downloader/Filter/LocalFileExecutor.h>

#include "Base/RequestKind.h"

namespace downloader {
namespace {

constexpr bool SameText(const char* left, const char* right) {
  return *left == *right && (*left == '\0' || SameText(left + 1, right + 1));
}

static_assert(SameText(LocalFileFilter::kLocalUrlPrefix, RequestKind::kLocalFilePrefix),
              "the local-file level serves exactly what requests classify as local files");

}  // namespace

// Defined here as well as in the class so that the library emits and exports
// it: nothing inside the library reads it by address any more, and a Windows
// host that does imports it from the DLL.
constexpr const char LocalFileFilter::kLocalUrlPrefix[];

LocalFileFilter::LocalFileFilter() = default;

LocalFileFilter::~LocalFileFilter() = default;

DLResultCode LocalFileFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                            const std::shared_ptr<IStream>& /*context*/) {
  if (uri != nullptr && RequestKind::Of(uri->GetStringRep()).localFile) {
    return DLResultCode(kDLSuccess, 0);
  }
  return DLResultCode(kDLFailure, kNotLocalUrlSubCode);
}

std::shared_ptr<IDownloadExecutor> LocalFileFilter::AcquireExecutor(const std::shared_ptr<URI>& /*uri*/) {
  return std::make_shared<LocalFileExecutor>();
}

}  // namespace downloader
