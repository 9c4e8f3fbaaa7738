#include "Base/SmartDns.h"

#include <atomic>
#include <regex>

#include <wisp/http/WispClient.h>

#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

std::vector<std::string> NetworkLookup(const std::string& host) {
  return LibraryContext::Current().httpClient()->DnsLookup(host);
}

std::atomic<HostResolver> g_resolver{&NetworkLookup};

}  // namespace

void SetHostResolver(HostResolver resolver) {
  g_resolver.store(resolver == nullptr ? &NetworkLookup : resolver, std::memory_order_release);
}

std::vector<std::string> dl_getSmartDnsResult(const std::string& url) {
  static const std::regex kHostPattern("^(http|https)://([^/\\?:]+)(/|\\?|:)");
  std::smatch match;
  if (!std::regex_search(url, match, kHostPattern)) return {};
  std::string host = match[2].str();
  DL_LOGD << "domain extracted:" << host;
  return g_resolver.load(std::memory_order_acquire)(host);
}

}  // namespace downloader
