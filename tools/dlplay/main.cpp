// dlplay: plays a URL (a media file or an HLS playlist) through the downloader
// library the way a player does; with no URL, runs the demo.
#include <dlfcn.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include <downloader/downloader.h>

#include "Demo.h"
#include "IniConfig.h"
#include "LogSink.h"
#include "Options.h"
#include "PlayReport.h"
#include "Player.h"

namespace {

constexpr int kExitUsage = 2;
constexpr int32_t kConfigId = 0;

std::shared_ptr<dlplay::IniConfig> LoadConfig(const dlplay::Options& options, std::string* error) {
  auto config = std::make_shared<dlplay::IniConfig>();
  if (!options.configFile.empty() && !config->LoadFile(options.configFile, error)) return nullptr;
  for (const auto& setting : options.settings) {
    config->Set(setting.first, setting.second.first, setting.second.second);
  }
  return config;
}

// As a host would: the engine is in the process before the library looks.
bool MapEngine(const std::string& path, std::string* error) {
  if (path.empty()) return true;
  if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) != nullptr) return true;
  const char* reason = dlerror();
  *error = "cannot map the engine " + path + ": " + (reason != nullptr ? reason : "unknown");
  return false;
}

int PlayUrl(const dlplay::Options& options, const std::shared_ptr<dlplay::IniConfig>& config) {
  std::ostream* jsonOut = options.jsonReport ? &std::cout : nullptr;
  dlplay::PlaySummary summary;
  std::string error;
  {
    dlplay::Player player(options, config, std::make_shared<dlplay::LogReporter>(), jsonOut, false);
    if (!player.Play(options.url, &summary, &error)) {
      std::fprintf(stderr, "dlplay: %s\n", error.c_str());
      return 1;
    }
  }
  if (!dlplay::Player::FinishCacheWrites()) {
    std::fprintf(stderr, "dlplay: the cache's last writes did not finish; the next play may miss them\n");
  }
  std::fputs(dlplay::PlaySummary::Format("summary", summary).c_str(), options.jsonReport ? stderr : stdout);
  return summary.failures() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // The version of the library dlplay runs with, which may differ from the one it was built with.
  if (argc == 2 && std::string(argv[1]) == "--version") {
    std::printf("dlplay %s\n", dl_version());
    return 0;
  }
  dlplay::Options options;
  std::string error;
  switch (dlplay::ParseOptions(argc, argv, &options, &error)) {
    case dlplay::ParseOutcome::kHelp:
      std::fputs(dlplay::UsageText().c_str(), stdout);
      return 0;
    case dlplay::ParseOutcome::kError:
      std::fprintf(stderr, "dlplay: %s\n\n%s", error.c_str(), dlplay::UsageText().c_str());
      return kExitUsage;
    case dlplay::ParseOutcome::kRun:
      break;
  }
  std::shared_ptr<dlplay::IniConfig> config = LoadConfig(options, &error);
  if (!config || !dlplay::LogSink::Install(options.logFile, &error) || !MapEngine(options.enginePath, &error)) {
    std::fprintf(stderr, "dlplay: %s\n", error.c_str());
    return kExitUsage;
  }
  downloader::DownloadManager& manager = downloader::DownloadManager::GetInstance();
  manager.AddNewConfig(config, kConfigId);
  manager.AddNewReporter(std::make_shared<dlplay::LogReporter>(), kConfigId);
  int status;
  if (options.url.empty()) {
    status = dlplay::RunDemo(options, config, options.jsonReport ? &std::cout : nullptr);
  } else {
    manager.SetLocalCachePath(options.cacheDir.c_str());
    status = PlayUrl(options, config);
  }
  dlplay::LogSink::Uninstall();
  return status;
}
