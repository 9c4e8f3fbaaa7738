// Compares the version the host was compiled against with the one it runs
// with, and uses one class of each library so that both are linked.
#include <downloader/downloader.h>
#include <wisp/wisp.h>

#include <cstdio>
#include <cstring>

int main() {
  wisp::http::Headers headers;
  headers.Add("Range", "bytes=0-");
  std::shared_ptr<downloader::URI> uri = downloader::URIBuilder::New().SetUrl("http://host.example/a.ts").Build();
  std::printf("compiled %s, running %s, cache id %s, %zu header\n", DOWNLOADER_VERSION_STRING, dl_version(),
              uri->ID().c_str(), headers.Size());
  return std::strcmp(DOWNLOADER_VERSION_STRING, dl_version()) == 0 ? 0 : 1;
}
