// dlplay: plays a URL (a media file or an HLS playlist) through the downloader
// library the way a player does; with no URL, runs the demo.
#include <dlfcn.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <downloader/downloader.h>

#include "Demo.h"
#include "ExitStatus.h"
#include "Gateway.h"
#include "IniConfig.h"
#include "LogSink.h"
#include "Options.h"
#include "PlayReport.h"
#include "Player.h"

namespace {

using dlplay::kExitUsage;
constexpr int32_t kConfigId = 0;

// Set by SIGINT/SIGTERM: the play stops where it is and still prints its summary.
std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler stores to it");

extern "C" void RequestStop(int) { stopRequested.store(true); }

void InstallStopHandlers() {
  struct sigaction action {};
  action.sa_handler = RequestStop;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

std::shared_ptr<dlplay::IniConfig> LoadConfig(const dlplay::Options& options, std::string* error) {
  auto config = std::make_shared<dlplay::IniConfig>();
  // A cache that is named is written to; the file and --set may still turn it off.
  config->Set("downloader_config", "enable_segment_writer", options.useCache ? "true" : "false");
  if (!options.configFile.empty() && !config->LoadFile(options.configFile, error)) return nullptr;
  dlplay::ApplyNetworkSettings(options.network, config.get());
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
  std::ofstream reportFile;
  std::ostream* jsonOut = nullptr;
  std::string error;
  if (!dlplay::OpenJsonReport(options, &reportFile, &jsonOut, &error)) {
    std::fprintf(stderr, "dlplay: %s\n", error.c_str());
    return kExitUsage;
  }
  bool stdoutTaken = options.MediaOnStdout() || jsonOut == &std::cout;
  dlplay::PlaySummary summary;
  bool played;
  int playFailureStatus;
  {
    dlplay::Player player(options, config, std::make_shared<dlplay::LogReporter>(), jsonOut,
                          options.network.silent);
    player.SetStopFlag(&stopRequested);
    played = player.Play(options.url, &summary, &error);
    playFailureStatus = player.PlayFailureStatus();
  }
  if (!played) std::fprintf(stderr, "dlplay: %s\n", error.c_str());
  if (options.useCache && !dlplay::Player::FinishCacheWrites()) {
    std::fprintf(stderr, "dlplay: the cache's last writes did not finish; the next play may miss them\n");
  }
  if (!options.network.silent) {
    std::fputs(dlplay::PlaySummary::Format("summary", summary).c_str(), stdoutTaken ? stderr : stdout);
  }
  if (!played && summary.failures() == 0) return playFailureStatus;
  return summary.ExitStatus();
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
  if (!config || !dlplay::LogSink::Install(options.logFile, options.network.verbose, &error) ||
      !MapEngine(options.enginePath, &error)) {
    std::fprintf(stderr, "dlplay: %s\n", error.c_str());
    return kExitUsage;
  }
  if (options.network.insecure) {
    std::fprintf(stderr, "dlplay: warning: -k: server certificates are not checked; "
                         "anyone on the path could have served these bytes\n");
  }
  downloader::DownloadManager& manager = downloader::DownloadManager::GetInstance();
  manager.AddNewConfig(config, kConfigId);
  manager.AddNewReporter(std::make_shared<dlplay::LogReporter>(), kConfigId);
  int status;
  if (options.serve) {
    if (options.useCache) manager.SetLocalCachePath(options.cacheDir.c_str());
    InstallStopHandlers();
    status = dlplay::RunGateway(options, config, &stopRequested);
  } else if (options.url.empty()) {
    status = dlplay::RunDemo(options, config, options.jsonReport ? &std::cout : nullptr);
  } else {
    if (options.useCache) manager.SetLocalCachePath(options.cacheDir.c_str());
    InstallStopHandlers();
    status = PlayUrl(options, config);
  }
  dlplay::LogSink::Uninstall();
  return status;
}
