#include <downloader/Pipe/ITunnelConfig.h>

namespace downloader {

ITunnelConfig::ITunnelConfig() : intervalMs(kDefaultIntervalMs) {}

ITunnelConfig::ITunnelConfig(const ITunnelConfig& other) = default;

ITunnelConfig::ITunnelConfig(ITunnelConfig&& other) noexcept = default;

ITunnelConfig& ITunnelConfig::operator=(const ITunnelConfig& other) = default;

ITunnelConfig& ITunnelConfig::operator=(ITunnelConfig&& other) noexcept = default;

ITunnelConfig::~ITunnelConfig() = default;

}  // namespace downloader
