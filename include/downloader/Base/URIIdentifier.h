// Computes a resource's cache identity. The cache keys files by ID; GroupID
// names a family of resources (empty when there is none).
//
// A URI calls its identifier once, while it is being built, after its hash
// and URL type are known: an identifier may read those but must not keep the
// pointer. Identifiers hold no data and may be shared across threads.
#ifndef DOWNLOADER_BASE_URIIDENTIFIER_H_
#define DOWNLOADER_BASE_URIIDENTIFIER_H_

#include <string>

#include <downloader/DownloaderExport.h>

namespace downloader {

class URI;

class DOWNLOADER_EXPORT URIIdentifier {
 public:
  URIIdentifier() = default;
  URIIdentifier(const URIIdentifier&) = default;
  URIIdentifier& operator=(const URIIdentifier&) = default;
  virtual ~URIIdentifier();

  virtual std::string ID(const URI* uri) = 0;
  virtual std::string GroupID(const URI* uri) = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_URIIDENTIFIER_H_
