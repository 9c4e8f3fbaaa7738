#include "NetworkOptions.h"

#include "IniConfig.h"
#include "TextTrim.h"

namespace dlplay {
namespace {

constexpr char kTransportGroup[] = "http_downloader_kit";

// The library's header text separates fields with '&' and cannot carry one
// inside a value; a line break would add a header of its own.
bool CheckHeaderValue(const std::string& what, const std::string& value, std::string* error) {
  if (value.find_first_of("\r\n") != std::string::npos) {
    *error = what + " carries a line break";
    return false;
  }
  if (value.find('&') != std::string::npos) {
    *error = what + " cannot contain '&'";
    return false;
  }
  return true;
}

bool CheckHeader(const std::string& header, std::string* error) {
  const size_t colon = header.find(':');
  if (colon == std::string::npos || Trim(header.substr(0, colon)).empty() ||
      Trim(header.substr(colon + 1)).empty()) {
    *error = "-H wants \"Name: value\", not \"" + header + "\"";
    return false;
  }
  return CheckHeaderValue("-H \"" + header + "\"", header, error);
}

}  // namespace

NetworkParse ParseNetworkOption(int argc, const char* const* argv, int* index, NetworkOptions* options,
                                std::string* error) {
  const std::string arg = argv[*index];
  if (arg == "-k" || arg == "--insecure") {
    options->insecure = true;
    return NetworkParse::kTaken;
  }
  if (arg == "-s" || arg == "--silent") {
    options->silent = true;
    return NetworkParse::kTaken;
  }
  if (arg == "-v" || arg == "--verbose") {
    options->verbose = true;
    return NetworkParse::kTaken;
  }
  std::string* target = nullptr;
  if (arg == "-A" || arg == "--user-agent") target = &options->userAgent;
  if (arg == "-x" || arg == "--proxy") target = &options->proxy;
  if (arg == "--cacert") target = &options->caFile;
  const bool isHeader = arg == "-H" || arg == "--header";
  if (target == nullptr && !isHeader) return NetworkParse::kNotMine;
  if (*index + 1 >= argc) {
    *error = arg + " needs a value";
    return NetworkParse::kError;
  }
  const std::string value = argv[++*index];
  if (isHeader) {
    if (!CheckHeader(value, error)) return NetworkParse::kError;
    options->headers.push_back(value);
  } else {
    if (target == &options->userAgent && !CheckHeaderValue(arg, value, error)) return NetworkParse::kError;
    *target = value;
  }
  return NetworkParse::kTaken;
}

std::string NetworkUsageText() {
  return "  -H, --header \"NAME: VALUE\"  send this header with every request (repeatable; no '&' in it)\n"
         "  -A, --user-agent TEXT  the User-Agent header\n"
         "  -x, --proxy HOST:PORT  send the requests through this HTTP proxy. Without it the proxy\n"
         "                         variables http_proxy, https_proxy, all_proxy and no_proxy are honoured\n"
         "  --cacert FILE          trust the certificate authorities of this PEM file\n"
         "  -k, --insecure         do not check the server's certificate (prints a warning)\n"
         "  -s, --silent           no progress and no summary; errors are still printed\n"
         "  -v, --verbose          the library's log on stderr\n";
}

void ApplyNetworkSettings(const NetworkOptions& options, IniConfig* config) {
  if (!options.proxy.empty()) config->Set(kTransportGroup, "proxy", options.proxy);
  if (!options.caFile.empty()) config->Set(kTransportGroup, "ca_file", options.caFile);
  if (!options.userAgent.empty()) config->Set(kTransportGroup, "user_agent", options.userAgent);
  if (options.insecure) config->Set(kTransportGroup, "tls_insecure", "true");
}

std::string RequestHeaderText(const NetworkOptions& options) {
  std::string text;
  for (const std::string& header : options.headers) {
    const size_t colon = header.find(':');
    if (!text.empty()) text += "&";
    text += Trim(header.substr(0, colon)) + ":" + Trim(header.substr(colon + 1));
  }
  return text;
}

}  // namespace dlplay
