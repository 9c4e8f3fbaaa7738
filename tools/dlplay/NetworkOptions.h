// The command-line options a curl user reaches for (-H, -A, -x, --cacert, -k,
// -s, -v), and how they become the library's own settings: the transport keys
// of "http_downloader_kit" and the header text that every request carries.
#ifndef TOOLS_DLPLAY_NETWORKOPTIONS_H_
#define TOOLS_DLPLAY_NETWORKOPTIONS_H_

#include <string>
#include <vector>

namespace dlplay {

class IniConfig;

struct NetworkOptions {
  // "Name: value" as given to -H, in order.
  std::vector<std::string> headers;
  std::string userAgent;
  std::string proxy;
  std::string caFile;
  bool insecure = false;
  bool silent = false;
  bool verbose = false;
};

enum class NetworkParse { kNotMine, kTaken, kError };

// Looks at argv[*index]; when it is one of these options, takes it (and its
// value, moving *index past it). kError with `error` set for a bad value.
NetworkParse ParseNetworkOption(int argc, const char* const* argv, int* index, NetworkOptions* options,
                                std::string* error);

std::string NetworkUsageText();

// Writes the settings the library reads for these options into `config`.
void ApplyNetworkSettings(const NetworkOptions& options, IniConfig* config);

// The request header text of every request: "Name:value&Name:value"; "" for none.
std::string RequestHeaderText(const NetworkOptions& options);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_NETWORKOPTIONS_H_
