#include <downloader/Base/URIBuilder.h>

namespace downloader {

URIBuilder URIBuilder::New() { return URIBuilder(); }

URIBuilder URIBuilder::FromURI(const std::shared_ptr<URI>& uri) {
  URIBuilder builder;
  if (uri) {
    builder.params = uri->GetParams();
    builder.duration_ = uri->GetDuration();
  }
  builder.origin_ = uri;
  return builder;
}

URIBuilder& URIBuilder::SetUrl(const std::string& url) {
  url_ = url;
  return *this;
}

URIBuilder& URIBuilder::SetHttpHeader(const std::string& header) {
  httpHeader_ = header;
  return *this;
}

URIBuilder& URIBuilder::SetDuration(uint64_t duration) {
  duration_ = duration;
  return *this;
}

URIBuilder& URIBuilder::SetURIIdentifier(URIIdentifier* identifier) {
  identifier_ = identifier;
  return *this;
}

std::shared_ptr<URI> URIBuilder::Build() const {
  std::shared_ptr<URI> uri(new URI(url_, params, identifier_));
  uri->httpHeader_ = httpHeader_;
  uri->duration_ = duration_;
  return uri;
}

}  // namespace downloader
