// The parameters of a heartbeat, copied into every beat.
#ifndef DOWNLOADER_BASE_PACEMAKERPARAMS_H_
#define DOWNLOADER_BASE_PACEMAKERPARAMS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace downloader {

using HeartbeatInfo = std::unordered_map<std::string, std::string>;

struct PacemakerParams {
  int32_t pid = -1;  // player id; the host's callback is asked for this player
  int32_t sid = -1;  // playback id beside pid, logged with it
  int64_t tag = 0;   // carried for the owner, not interpreted
  uint64_t duration = 0;  // milliseconds between the end of a beat and the next
  std::string label;      // carried for the owner, not interpreted
  // Receives each non-empty map the host's callback returns; may be empty.
  std::function<void(const HeartbeatInfo&)> consumer;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_PACEMAKERPARAMS_H_
