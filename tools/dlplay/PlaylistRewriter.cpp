#include "PlaylistRewriter.h"

#include <cctype>

#include "UrlResolver.h"

namespace dlplay {
namespace {

constexpr char kUriAttribute[] = "URI=\"";
constexpr char kTagPrefix[] = "#EXT";

bool IsHttpUrl(const std::string& url) {
  auto startsWith = [&url](const char* prefix) {
    size_t length = std::char_traits<char>::length(prefix);
    if (url.size() < length) return false;
    for (size_t i = 0; i < length; ++i) {
      if (std::tolower(static_cast<unsigned char>(url[i])) != prefix[i]) return false;
    }
    return true;
  };
  return startsWith("http://") || startsWith("https://");
}

std::string Route(const std::string& reference, const std::string& baseUrl, const GatewayUriFor& gatewayUri) {
  std::string absolute = ResolveUrl(baseUrl, reference);
  return IsHttpUrl(absolute) ? gatewayUri(absolute) : reference;
}

// The tag line with its URI attribute (one at an attribute's start, not the
// tail of another name) routed through the gateway.
std::string RewriteTag(const std::string& line, const std::string& baseUrl, const GatewayUriFor& gatewayUri) {
  const size_t attributeLength = sizeof(kUriAttribute) - 1;
  for (size_t at = line.find(kUriAttribute); at != std::string::npos; at = line.find(kUriAttribute, at + 1)) {
    if (at == 0 || (line[at - 1] != ':' && line[at - 1] != ',')) continue;
    size_t valueBegin = at + attributeLength;
    size_t valueEnd = line.find('"', valueBegin);
    if (valueEnd == std::string::npos) return line;
    std::string routed = Route(line.substr(valueBegin, valueEnd - valueBegin), baseUrl, gatewayUri);
    return line.substr(0, valueBegin) + routed + line.substr(valueEnd);
  }
  return line;
}

std::string RewriteLine(const std::string& line, const std::string& baseUrl, const GatewayUriFor& gatewayUri) {
  size_t begin = line.find_first_not_of(" \t");
  if (begin == std::string::npos) return line;
  if (line[begin] == '#') {
    return line.compare(begin, sizeof(kTagPrefix) - 1, kTagPrefix) == 0 ? RewriteTag(line, baseUrl, gatewayUri)
                                                                       : line;
  }
  size_t end = line.find_last_not_of(" \t");
  return Route(line.substr(begin, end - begin + 1), baseUrl, gatewayUri);
}

}  // namespace

std::string RewritePlaylist(const std::string& text, const std::string& baseUrl, const GatewayUriFor& gatewayUri) {
  std::string out;
  out.reserve(text.size() * 2);
  size_t begin = 0;
  while (begin < text.size()) {
    size_t newline = text.find('\n', begin);
    size_t next = newline == std::string::npos ? text.size() : newline + 1;
    size_t contentEnd = newline == std::string::npos ? text.size() : newline;
    if (contentEnd > begin && text[contentEnd - 1] == '\r') --contentEnd;
    out += RewriteLine(text.substr(begin, contentEnd - begin), baseUrl, gatewayUri);
    out.append(text, contentEnd, next - contentEnd);
    begin = next;
  }
  return out;
}

std::string PercentEncode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size() * 3);
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0x0F]);
    }
  }
  return out;
}

}  // namespace dlplay
