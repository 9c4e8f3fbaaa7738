// One immutable description of a resource to fetch: its URL, the request's
// parameters (player id, live flag, byte range, ...), an optional HTTP header
// text, a duration, the URL type, a 64-bit hash of the URL, and the identity
// strings that the cache keys on.
//
// Built with URIBuilder (or URI::From); shared through shared pointers; never
// changed after it is built, so any thread may read it.
#ifndef DOWNLOADER_BASE_URI_H_
#define DOWNLOADER_BASE_URI_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <downloader/Base/URIIdentifier.h>
#include <downloader/DownloaderExport.h>

// Decided by the first of ".m3u8", ".ts", ".mp4" found anywhere in the URL
// text (plain, case-sensitive substring search, in that order); anything else,
// the empty URL included, is kDLUrlOther. No URL resolves to kDLUrlSpare.
enum DLUrlType : int32_t {
  kDLUrlM3u8 = 0,
  kDLUrlTs = 1,
  kDLUrlMp4 = 2,
  kDLUrlSpare = 3,
  kDLUrlOther = 4,
};

namespace downloader {

class URIBuilder;

class DOWNLOADER_EXPORT URI {
 public:
  using Params = std::map<std::string, std::string>;

  // ID: the hash as unsigned decimal text; GroupID: empty.
  class DOWNLOADER_EXPORT DefaultURIIdentifier : public URIIdentifier {
   public:
    std::string ID(const URI* uri) override;
    std::string GroupID(const URI* uri) override;
  };

  // A URI with the shared default identifier.
  static std::shared_ptr<URI> From(const std::string& url, const Params& params);

  URI(const URI&) = default;
  URI& operator=(const URI&) = default;
  ~URI();

  const std::string& GetStringRep() const { return stringRep_; }
  const std::string& GetHttpHeader() const { return httpHeader_; }
  const std::string& ID() const { return id_; }
  const std::string& GroupID() const { return groupId_; }
  uint64_t Hash() const { return hash_; }
  int32_t GetURIType() const { return urlType_; }
  uint64_t GetDuration() const { return duration_; }
  const Params& GetParams() const { return params_; }

  DLUrlType ResolveUrlType() const;
  // True for a key stored with an empty value too.
  bool ContainsParamKey(const std::string& key) const;

 private:
  friend class URIBuilder;

  URI(std::string url, Params params, URIIdentifier* identifier);

  std::string stringRep_;
  uint64_t duration_ = 0;
  DLUrlType urlType_;
  Params params_;
  std::string httpHeader_;
  uint64_t hash_;
  std::string id_;
  std::string groupId_;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_URI_H_
