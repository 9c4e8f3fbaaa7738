// Builds URIs. Fill `params` directly, set the rest with the chaining
// setters, then Build. A builder is a plain value: not shared across threads.
#ifndef DOWNLOADER_BASE_URIBUILDER_H_
#define DOWNLOADER_BASE_URIBUILDER_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/DownloaderExport.h>

namespace downloader {

class DOWNLOADER_EXPORT URIBuilder {
 public:
  static URIBuilder New();
  // Starts from an existing URI's parameters and duration (not its URL,
  // header or identifier).
  static URIBuilder FromURI(const std::shared_ptr<URI>& uri);

  URIBuilder& SetUrl(const std::string& url);
  URIBuilder& SetHttpHeader(const std::string& header);
  URIBuilder& SetDuration(uint64_t duration);
  // Not owned: must outlive Build. Null selects the shared default identifier.
  URIBuilder& SetURIIdentifier(URIIdentifier* identifier);

  std::shared_ptr<URI> Build() const;

  const std::shared_ptr<URI>& origin() const { return origin_; }

  URI::Params params;

 private:
  std::string url_;
  std::string httpHeader_;
  uint64_t duration_ = 0;
  URIIdentifier* identifier_ = nullptr;
  std::shared_ptr<URI> origin_;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_URIBUILDER_H_
