// Compiles and runs against the shared library with nothing but the umbrella
// header: every public class of the foundation is usable from a host.
#include <downloader/downloader.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <memory>

namespace {

int g_failures = 0;

void Check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    ++g_failures;
  }
}

class HostConfig : public protocols::IConfigure {
 public:
  std::string GetValue(const std::string&, const std::string& key, const std::string& defaultValue) override {
    return key == "new_drain_caculator" ? "0" : defaultValue;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {{"k", "v"}}; }
};

std::atomic<int> g_lines{0};  // the callback runs on library threads too
void OnLine(int, const char*) { ++g_lines; }

}  // namespace

int main() {
  dl_set_quill_callback(&OnLine);
  dl_set_log_level(DL_LOG_TRACE);
  Check(std::strcmp(dl_version(), DOWNLOADER_VERSION_STRING) == 0, "the library's version is the header's");

  downloader::BufferQueue queue;
  queue.AppendData(downloader::BufferChunk::AllocBufferChunk("abc", 3));
  char out[4] = {};
  Check(queue.ReadData(out, 4).bytes == 3 && std::strcmp(out, "abc") == 0, "BufferQueue");
  Check(g_lines > 0, "log lines reach the host");

  downloader::URIBuilder builder = downloader::URIBuilder::New();
  builder.params["player_id"] = "2";
  std::shared_ptr<downloader::URI> uri = builder.SetUrl("http://h/a.ts").Build();
  Check(uri->GetURIType() == kDLUrlTs, "URI type");
  Check(downloader::ReadParamInt(uri->GetParams(), "player_id", -1) == 2, "parameter reader");

  auto config = std::make_shared<HostConfig>();
  auto pseudo = std::make_shared<downloader::PseudoConfig>();
  pseudo->Snapshot(config);
  Check(pseudo->GetValue("downloader_config", "k", "") == "v", "PseudoConfig snapshot");
  Check(pseudo->refreshConfig("96"), "refreshConfig");

  auto calculator = downloader::DrainCalculatorFactory::Create(config, nullptr);
  calculator->OnRead(1, 0, 0);
  Check(!calculator->IsDrain(), "drain calculator warms up");

  auto pacemaker = downloader::HeartPacemaker::Create();
  downloader::PacemakerParams params;
  params.duration = 1000;
  pacemaker->Start(params);
  pacemaker->Stop();

  downloader::DownloadManager& manager = downloader::DownloadManager::GetInstance();
  manager.AddNewConfig(config, 1);
  Check(manager.GetConfigById(1) == config, "download manager registry");
  bool heard = false;
  manager.RegisterDownloadCompleteListener(2, [&heard](std::shared_ptr<downloader::URI>) { heard = true; });
  manager.OnDownloadComplete(uri);
  Check(heard, "completion listener");

  // No engine in this process: the wrappers and the C exports answer their fixed values.
  Check(downloader::PcdnInterfaceHelper::dlPCDNOpen("r", 0, "") == 0, "PCDN wrapper without engine");
  Check(downloader::XcdnInterfaceHelper::dlXCdnStopSource(1) == -1, "XCDN wrapper without engine");
  Check(cCacheDownload_StopDownload(0) == -1, "cCacheDownload_StopDownload without engine");
  downloader::FileDownloader preload({{"http://h/a.mp4", "", "", 0}});
  preload.Start();
  Check(preload.identity() == 1000 && preload.downloadIds().front() == -1, "preload set without engine");

  const std::string path = (std::filesystem::temp_directory_path() / "dl-host-local.ts").generic_u8string();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  Check(file != nullptr && std::fwrite("local bytes", 1, 11, file) == 11, "write a local file");
  if (file != nullptr) std::fclose(file);
  auto local = downloader::URI::From(std::string(downloader::LocalFileFilter::kLocalUrlPrefix) + path, {});
  downloader::WispDownloadFilter http;
  downloader::LocalFileFilter localLevel;
  Check(http.ShouldRespond(local, nullptr).subCode == downloader::WispDownloadFilter::kRefusedSubCode,
        "the HTTP level refuses a local URL");
  Check(localLevel.ShouldRespond(local, nullptr).code == kDLSuccess, "the local level serves it");
  auto executor = localLevel.AcquireExecutor(local);
  Check(executor->Open(local).code == kDLSuccess, "local open");
  downloader::Packet bytes(64);
  bytes.Alloc();
  Check(executor->Read(bytes).bytes == 11 && std::memcmp(bytes.GetBuffer(), "local bytes", 11) == 0, "local read");
  Check(executor->Read(bytes).code == kDLEndOfData, "local end of data");
  executor->Close();
  std::remove(path.c_str());

  dl_set_quill_callback(nullptr);
  std::printf("%s\n", g_failures == 0 ? "host: all checks passed" : "host: failures");
  return g_failures == 0 ? 0 : 1;
}
