#include "HlsPlaylist.h"

#include <cstdlib>
#include <limits>
#include <sstream>

#include "TextTrim.h"
#include "UrlResolver.h"

namespace dlplay {
namespace {

constexpr char kStreamInfTag[] = "#EXT-X-STREAM-INF:";
constexpr char kSegmentInfTag[] = "#EXTINF:";
constexpr char kByteRangeTag[] = "#EXT-X-BYTERANGE:";
constexpr char kMediaSequenceTag[] = "#EXT-X-MEDIA-SEQUENCE:";
constexpr char kTargetDurationTag[] = "#EXT-X-TARGETDURATION:";
constexpr char kEndListTag[] = "#EXT-X-ENDLIST";
constexpr char kMapTag[] = "#EXT-X-MAP:";
constexpr char kKeyTag[] = "#EXT-X-KEY:";
constexpr char kDiscontinuityTag[] = "#EXT-X-DISCONTINUITY";
constexpr char kProgramDateTimeTag[] = "#EXT-X-PROGRAM-DATE-TIME:";
constexpr char kMethodNone[] = "NONE";
constexpr char kMethodAes128[] = "AES-128";
constexpr char kUtf8ByteOrderMark[] = "\xEF\xBB\xBF";

bool StartsWith(const std::string& text, const char* prefix, std::string* rest = nullptr) {
  size_t length = std::char_traits<char>::length(prefix);
  if (text.compare(0, length, prefix) != 0) return false;
  if (rest != nullptr) *rest = text.substr(length);
  return true;
}

// The value of NAME in an attribute list such as BANDWIDTH=800000,CODECS="a,b".
std::string AttributeValue(const std::string& attributes, const std::string& name) {
  size_t at = 0;
  while (at < attributes.size()) {
    size_t equals = attributes.find('=', at);
    if (equals == std::string::npos) return std::string();
    std::string key = Trim(attributes.substr(at, equals - at));
    size_t valueStart = equals + 1;
    size_t valueEnd;
    std::string value;
    if (valueStart < attributes.size() && attributes[valueStart] == '"') {
      size_t closing = attributes.find('"', valueStart + 1);
      if (closing == std::string::npos) closing = attributes.size();
      value = attributes.substr(valueStart + 1, closing - valueStart - 1);
      valueEnd = attributes.find(',', closing);
    } else {
      valueEnd = attributes.find(',', valueStart);
      value = attributes.substr(valueStart, valueEnd == std::string::npos ? std::string::npos : valueEnd - valueStart);
    }
    if (key == name) return Trim(value);
    if (valueEnd == std::string::npos) return std::string();
    at = valueEnd + 1;
  }
  return std::string();
}

uint64_t ParseUnsigned(const std::string& text) {
  long long value = std::strtoll(text.c_str(), nullptr, 10);
  return value < 0 ? 0 : static_cast<uint64_t>(value);
}

double ParseSeconds(const std::string& text) {
  double value = std::strtod(text.c_str(), nullptr);
  return value > 0 ? value : 0;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "0x" and up to 32 hex digits, right-aligned in the block as a big-endian number.
bool ParseIv(const std::string& text, AesBlock* iv) {
  if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) return false;
  std::string digits = text.substr(2);
  if (digits.size() > 2 * kAesBlockSize) return false;
  digits.insert(0, 2 * kAesBlockSize - digits.size(), '0');
  for (size_t i = 0; i < kAesBlockSize; ++i) {
    int high = HexDigit(digits[2 * i]);
    int low = HexDigit(digits[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    (*iv)[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return true;
}

// "LENGTH[@OFFSET]", OFFSET being `defaultStart` when left out. A range whose end does not fit a signed 64-bit
// offset is refused: no resource is that large, and the next range would start past it.
bool ParseRange(const std::string& value, int64_t defaultStart, int64_t* start, int64_t* length,
                std::string* error) {
  size_t at = value.find('@');
  *length = static_cast<int64_t>(ParseUnsigned(value.substr(0, at)));
  *start = at == std::string::npos ? defaultStart : static_cast<int64_t>(ParseUnsigned(value.substr(at + 1)));
  if (*length > std::numeric_limits<int64_t>::max() - *start) {
    *error = "a byte range ends past the largest offset: " + value;
    return false;
  }
  return true;
}

// Walks the lines once, remembering which tag announced the next URI line.
class Parser {
 public:
  Parser(const std::string& baseUrl, HlsPlaylist* playlist) : baseUrl_(baseUrl), playlist_(playlist) {}

  bool Line(const std::string& line, std::string* error) {
    std::string rest;
    if (line.empty()) return true;
    if (StartsWith(line, kStreamInfTag, &rest)) {
      pendingVariant_ = true;
      variant_ = HlsVariant();
      variant_.bandwidth = ParseUnsigned(AttributeValue(rest, "BANDWIDTH"));
      variant_.resolution = AttributeValue(rest, "RESOLUTION");
    } else if (StartsWith(line, kSegmentInfTag, &rest)) {
      pendingSegment_ = true;
      segment_.durationSeconds = ParseSeconds(rest);
    } else if (StartsWith(line, kByteRangeTag, &rest)) {
      return ParseByteRange(rest, error);
    } else if (StartsWith(line, kMediaSequenceTag, &rest)) {
      nextSequence_ = ParseUnsigned(rest);
    } else if (StartsWith(line, kTargetDurationTag, &rest)) {
      playlist_->targetDurationSeconds = ParseSeconds(rest);
    } else if (StartsWith(line, kEndListTag)) {
      playlist_->endList = true;
    } else if (StartsWith(line, kMapTag, &rest)) {
      return ParseMap(rest, error);
    } else if (StartsWith(line, kKeyTag, &rest)) {
      return ParseKey(rest, error);
    } else if (line == kDiscontinuityTag) {
      segment_.discontinuity = true;
    } else if (StartsWith(line, kProgramDateTimeTag, &rest)) {
      segment_.programDateTime = Trim(rest);
    } else if (line[0] != '#') {
      return Uri(line, error);
    }
    return true;
  }

  bool Finish(std::string* error) {
    if (pendingVariant_ || pendingSegment_) {
      *error = "a tag announces a URI but the playlist ends";
      return false;
    }
    if (!playlist_->variants.empty() && !playlist_->segments.empty()) {
      *error = "the playlist lists both variants and segments";
      return false;
    }
    playlist_->kind = playlist_->variants.empty() ? HlsPlaylist::Kind::kMedia : HlsPlaylist::Kind::kMaster;
    return true;
  }

 private:
  // Without an offset the range follows the previous one.
  bool ParseByteRange(const std::string& value, std::string* error) {
    return ParseRange(value, nextRangeStart_, &segment_.rangeStart, &segment_.rangeLength, error);
  }

  bool ParseMap(const std::string& attributes, std::string* error) {
    HlsMap map;
    std::string uri = AttributeValue(attributes, "URI");
    if (uri.empty()) {
      *error = "a map without a URI";
      return false;
    }
    map.uri = ResolveUrl(baseUrl_, uri);
    std::string range = AttributeValue(attributes, "BYTERANGE");
    if (!range.empty() && !ParseRange(range, 0, &map.rangeStart, &map.rangeLength, error)) return false;
    map.key = key_;
    map_ = map;
    return true;
  }

  // An unknown method is kept, not refused: the player decides, and a playlist
  // whose segments never use it still plays.
  bool ParseKey(const std::string& attributes, std::string* error) {
    HlsKey key;
    key.methodName = AttributeValue(attributes, "METHOD");
    if (key.methodName == kMethodNone) {
      key_ = key;
      return true;
    }
    key.method = key.methodName == kMethodAes128 ? HlsKey::Method::kAes128 : HlsKey::Method::kUnsupported;
    std::string uri = AttributeValue(attributes, "URI");
    if (key.method == HlsKey::Method::kAes128 && uri.empty()) {
      *error = "an AES-128 key without a URI";
      return false;
    }
    if (!uri.empty()) key.uri = ResolveUrl(baseUrl_, uri);
    std::string iv = AttributeValue(attributes, "IV");
    if (!iv.empty()) {
      key.hasIv = ParseIv(iv, &key.iv);
      if (!key.hasIv) {
        *error = "a key with a malformed IV: " + iv;
        return false;
      }
    }
    key_ = key;
    return true;
  }

  bool Uri(const std::string& line, std::string* error) {
    std::string absolute = ResolveUrl(baseUrl_, line);
    if (pendingVariant_) {
      variant_.uri = absolute;
      playlist_->variants.push_back(variant_);
      pendingVariant_ = false;
    } else if (pendingSegment_) {
      segment_.uri = absolute;
      segment_.sequence = nextSequence_++;
      segment_.map = map_;
      segment_.key = key_;
      playlist_->segments.push_back(segment_);
      nextRangeStart_ = segment_.rangeLength >= 0 ? segment_.rangeStart + segment_.rangeLength : 0;
      segment_ = HlsSegment();
      pendingSegment_ = false;
    } else {
      *error = "a URI line that no tag announced: " + line;
      return false;
    }
    return true;
  }

  const std::string baseUrl_;
  HlsPlaylist* playlist_;
  bool pendingVariant_ = false;
  bool pendingSegment_ = false;
  HlsVariant variant_;
  HlsSegment segment_;
  // In force from their tag until the next one of theirs.
  HlsMap map_;
  HlsKey key_;
  uint64_t nextSequence_ = 0;
  int64_t nextRangeStart_ = 0;
};

}  // namespace

AesBlock HlsKey::IvFor(uint64_t sequence) const {
  if (hasIv) return iv;
  AesBlock derived{};
  for (size_t i = 0; i < sizeof(sequence); ++i) {
    derived[kAesBlockSize - 1 - i] = static_cast<uint8_t>(sequence >> (8 * i));
  }
  return derived;
}

int HlsPlaylist::BestVariant() const {
  int best = -1;
  for (size_t i = 0; i < variants.size(); ++i) {
    if (best < 0 || variants[i].bandwidth > variants[best].bandwidth) best = static_cast<int>(i);
  }
  return best;
}

bool ParseHlsPlaylist(const std::string& text, const std::string& baseUrl, HlsPlaylist* playlist,
                      std::string* error) {
  *playlist = HlsPlaylist();
  std::istringstream lines(text);
  std::string line;
  bool sawHeader = false;
  Parser parser(baseUrl, playlist);
  while (std::getline(lines, line)) {
    line = Trim(line);
    if (!sawHeader) {
      if (line.empty()) continue;
      StartsWith(line, kUtf8ByteOrderMark, &line);
      if (line != kPlaylistHeaderTag) {
        *error = "not a playlist: the first line is not " + std::string(kPlaylistHeaderTag);
        return false;
      }
      sawHeader = true;
      continue;
    }
    if (!parser.Line(line, error)) return false;
  }
  if (!sawHeader) {
    *error = "not a playlist: empty";
    return false;
  }
  return parser.Finish(error);
}

bool LooksLikePlaylistUrl(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  const std::string suffix = ".m3u8";
  return path.size() >= suffix.size() && path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace dlplay
