// The address list that the PCDN engine is handed with a URL: the server
// addresses known for the URL's host, in the order the resolver gives them.
//
// Thread rules: any thread. The lookup blocks the calling thread for as long
// as the resolver takes. The resolver slot is an atomic word: replace it at
// start-up, before lookups run.
#ifndef DOWNLOADER_BASE_SMARTDNS_H_
#define DOWNLOADER_BASE_SMARTDNS_H_

#include <string>
#include <vector>

namespace downloader {

// Host name to an ordered list of numeric addresses; empty when nothing is
// known.
using HostResolver = std::vector<std::string> (*)(const std::string& host);

// The default resolver asks the network library's name lookup. Null restores
// the default.
void SetHostResolver(HostResolver resolver);

// The host of `url` as the pattern "^(http|https)://([^/\?:]+)(/|\?|:)" finds
// it (logged as "domain extracted:"), resolved; empty for a URL that does not
// match the pattern (another scheme, or no path, query or port after the
// host).
std::vector<std::string> dl_getSmartDnsResult(const std::string& url);

}  // namespace downloader

#endif  // DOWNLOADER_BASE_SMARTDNS_H_
