#include <downloader/Base/URI.h>

#include <utility>

namespace downloader {
namespace {

constexpr uint64_t kFnvOffsetBasis = 0xcbf29ce484222325ULL;
constexpr uint64_t kFnvPrime = 0x100000001b3ULL;

uint64_t Fnv1a64(const std::string& text) {
  uint64_t hash = kFnvOffsetBasis;
  for (unsigned char byte : text) {
    hash ^= byte;
    hash *= kFnvPrime;
  }
  return hash;
}

URI::DefaultURIIdentifier& SharedDefaultIdentifier() {
  static URI::DefaultURIIdentifier identifier;
  return identifier;
}

}  // namespace

URIIdentifier::~URIIdentifier() = default;

std::string URI::DefaultURIIdentifier::ID(const URI* uri) { return std::to_string(uri->Hash()); }

std::string URI::DefaultURIIdentifier::GroupID(const URI* /*uri*/) { return std::string(); }

URI::URI(std::string url, Params params, URIIdentifier* identifier)
    : stringRep_(std::move(url)), params_(std::move(params)) {
  if (identifier == nullptr) identifier = &SharedDefaultIdentifier();
  // The identifier may read the hash and the type: both come first.
  hash_ = Fnv1a64(stringRep_);
  urlType_ = ResolveUrlType();
  id_ = identifier->ID(this);
  groupId_ = identifier->GroupID(this);
}

URI::~URI() = default;

std::shared_ptr<URI> URI::From(const std::string& url, const Params& params) {
  return std::shared_ptr<URI>(new URI(url, params, nullptr));
}

DLUrlType URI::ResolveUrlType() const {
  static const struct {
    const char* pattern;
    DLUrlType type;
  } kTypeTable[] = {{".m3u8", kDLUrlM3u8}, {".ts", kDLUrlTs}, {".mp4", kDLUrlMp4}};
  for (const auto& entry : kTypeTable) {
    if (stringRep_.find(entry.pattern) != std::string::npos) return entry.type;
  }
  return kDLUrlOther;
}

bool URI::ContainsParamKey(const std::string& key) const { return params_.count(key) != 0; }

}  // namespace downloader
