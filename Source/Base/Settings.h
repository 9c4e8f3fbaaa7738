// Every setting and request parameter the library reads, each named once with
// its group, type, default and meaning, and the two structures they are read
// into: DownloaderSettings from a configuration (IConfigure) and
// RequestParams from a request's parameter map. A consumer reads the
// structure once when it is created or opened and then uses the typed fields;
// no other file names a key's default.
//
// Values convert by the rules of ConfigReader.h (ParseInt32 clamps, booleans
// are "true" or "1"). A configuration read hands each key's default to
// IConfigure::GetValue, as a single read would. Request parameters of an
// Opt type stay empty when the map does not name them; their consumer
// decides what an absent value means.
//
// docs/settings.md lists the same rows; a test fails when the two differ.
//
// Plain values; the read functions are stateless and callable from any thread.
#ifndef DOWNLOADER_BASE_SETTINGS_H_
#define DOWNLOADER_BASE_SETTINGS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <downloader/Pipe/ConfigReader.h>

namespace downloader {

// The C++ type of each type name the lists use.
namespace setting_type {
using Int32 = int32_t;
using Int64 = int64_t;
using Bool = bool;
using String = std::string;
using OptInt32 = std::optional<int32_t>;
using OptString = std::optional<std::string>;
}  // namespace setting_type

// X(group, field, key, type, default, meaning)
#define DL_DOWNLOADER_SETTINGS(X)                                                                                   \
  X(kDownloaderConfigGroup, downloadLevelMask, "download_level", Int32, 7,                                        \
    "levels a stream may use, a mask of level bits (1 PCDN, 2 local file, 4 HTTP)")                               \
  X(kDownloaderConfigGroup, readTimeoutMs, "read_timeout", Int64, 5000,                                           \
    "how long a read waits for bytes before it fails")                                                            \
  X(kDownloaderConfigGroup, asyncOpenCheckMs, "async_open_check_duration", Int32, 20,                             \
    "how long one open-ready poll waits for an asynchronous open")                                                \
  X(kDownloaderConfigGroup, asyncOpenTimeoutMs, "async_open_timeout", Int64, 10000,                               \
    "how long an asynchronous open may take before it is given up")                                              \
  X(kDownloaderConfigGroup, cacheWriterPacketSize, "cache_writer_packet_size", Int32, 16384,                      \
    "packet size of cache writing, logged when a stream opens")                                                   \
  X(kDownloaderConfigGroup, readRetryCount, "read_retry_count", Int32, 3,                                         \
    "reads the buffer drain calculator looks back over")                                                          \
  X(kDownloaderConfigGroup, readFallbackThresholdPercent, "read_fallback_threshold_percent", Int32, 10,           \
    "share of slow reads that makes the buffer drain calculator judge a drain")                                   \
  X(kDownloaderConfigGroup, bufferDurationThresholdMs, "buffer_duration_threshold", Int32, 20000,                 \
    "player buffer below which the drain judgement applies")                                                      \
  X(kDownloaderConfigGroup, drainCalculatorChoice, "new_drain_caculator", Int32, 1,                               \
    "1 judges drains by flow rate; anything else by the read ring")                                               \
  X(kDownloaderConfigGroup, readBufferCompareCount, "read_buffer_compaire_count", Int32, 3,                       \
    "consulted for hosts that watch it; the ring size comes from read_retry_count")                               \
  X(kDownloaderConfigGroup, flowRateSampleIntervalMs, "flow_rate_sample_interval", Int32, 1000,                   \
    "length of one flow-rate sample (at least 1)")                                                                \
  X(kDownloaderConfigGroup, flowRateSampleWindow, "flow_rate_sample_wnd", Int32, 3,                               \
    "samples in the flow-rate window (at least 1)")                                                               \
  X(kDownloaderConfigGroup, dumpFlowRateIntervalMs, "dump_flow_rate_interval_", Int32, 10000,                     \
    "how often the flow-rate controller logs its state (at least 1)")                                             \
  X(kDownloaderConfigGroup, pulseCounts, "let_pluse", Bool, true,                                                 \
    "the player's pulse data feed the flow-rate judgement")                                                       \
  X(kDownloaderConfigGroup, fastReadDurationMs, "fast_read_duration", Int32, 0,                                   \
    "above 0: an HTTP read answers with what is there instead of waiting for bytes")                   \
  X(kDownloaderConfigGroup, hashCheckSample, "hash_check_sample", Int32, 0,                                       \
    "percent of HTTP requests whose bytes are hashed for a dump check")                                           \
  X(kDownloaderConfigGroup, pcdnHeartbeat, "pcdn_heartbeat", Bool, true,                                          \
    "the PCDN executor sends the engine heartbeats while open")                                                   \
  X(kDownloaderConfigGroup, segmentOpenTimeoutMs, "segment_open_timeout", Int32, 0,                               \
    "how long the segment executor's open waits for the first bytes")                                             \
  X(kDownloaderConfigGroup, segmentControlTimeoutMs, "segment_control_timeout", Int32, 0,                         \
    "above 0: how long a segment read waits, instead of read_timeout")                                           \
  X(kDownloaderConfigGroup, segmentFlushThreshold, "segment_flush_threshold", Int32, 0,                           \
    "bytes a segment file gathers before it writes them (0: 131072)")                                             \
  X(kDownloaderConfigGroup, segmentReadChunkSize, "segment_read_chunk_size", Int32, 0,                            \
    "bytes a segment file reads at once (0: 65536)")                                                              \
  X(kDownloaderConfigGroup, segmentCellCapacityMin, "segment_cell_capacity_min", Int32, 0,                        \
    "least capacity of a segment file's write cell (0: 16384)")                                                   \
  X(kDownloaderConfigGroup, segmentWriterFlushThreshold, "segment_writer_flush_threshold", Int64, 0,              \
    "bytes a preload's segment writer gathers before it writes them (0: 131072)")                                 \
  X(kDownloaderConfigGroup, segmentWriterFlushThresholdPlay, "segment_writer_flush_threshold_play", Int64, 0,     \
    "bytes a playing stream's segment writer gathers before it writes them (0: 131072)")                          \
  X(kDownloaderConfigGroup, enableSegmentWriter, "enable_segment_writer", Bool, false,                            \
    "streams write what they read into segment files")                                                            \
  X(kDownloaderConfigGroup, enableSegmentCmaf, "enable_segment_cmaf", Bool, true,                                 \
    "segment writing covers separate audio and video tracks too")                                                 \
  X(kDownloaderConfigGroup, forceSegmentWriter, "force_segment_writer", Bool, false,                              \
    "segment writing on whatever enable_segment_writer says")                                                     \
  X(kDownloaderConfigGroup, enableCacheStoreLock, "enable_cache_store_lock", Bool, false,                         \
    "a segment file serves reads only once complete")                                                             \
  X(kDownloaderConfigGroup, enableCacheFilterRangeStart, "enable_cache_filter_range_start", Bool, false,          \
    "the cache levels serve a request that starts past 0 from its range_start")                                   \
  X(kDownloaderConfigGroup, enablePreload, "enable_preload", Bool, false,                                         \
    "the cache filter serves plain URLs from stored preloads")                                                    \
  X(kDownloaderConfigGroup, enableCacheBuffer, "enable_cache_buffer", Bool, false,                                \
    "the HTTP executor starts a preload_buffer request with the bytes already stored")                            \
  X(kDownloaderConfigGroup, cacheBufferLimitBytes, "cache_buffer_limit", Int64, 4194304,                          \
    "most stored bytes the HTTP executor takes before going to the network")                                      \
  X(kDownloaderConfigGroup, enableCleanDisk, "enable_clean_disk", Bool, false,                                    \
    "the disk cleaner runs")                                                                                      \
  X(kDownloaderConfigGroup, diskCacheCapacityBytes, "disk_cache_capacity", Int64, 0,                              \
    "bytes the cache folder may hold before the cleaner removes files (0: no limit)")                             \
  X(kDownloaderConfigGroup, cleanDurationMs, "clean_duration", Int64, 60000,                                      \
    "time between two passes of the disk cleaner (at least 1)")                                                   \
  X(kDownloaderConfigGroup, enableCdnFlowReport, "enable_cdn_flow_report", Bool, false,                           \
    "CDN flow is reported to the host")                                                                           \
  X(kDownloaderConfigGroup, enableNewFlowReport, "enable_new_flow_report", Bool, false,                           \
    "flow is reported in the newer record form")                                                                  \
  X(kDownloaderConfigGroup, enablePcdnQuillCallback, "enable_pcdn_quill_callback", Bool, false,                   \
    "the PCDN engine's trace lines go to the library's log")                                                      \
  X(kDownloaderConfigGroup, enableM3u8Mp, "enable_m3u8_mp", Bool, false,                                          \
    "playlists may use PCDN and multi-path HTTP")                                                                 \
  X(kDownloaderConfigGroup, usePcdnNg, "use_pcdn_ng", Bool, false,                                                \
    "the NG PCDN engine serves on-demand requests")                                                               \
  X(kDownloaderConfigGroup, disablePcdnNgReadDowngrade, "disable_pcdn_ng_read_downgrade", Bool, false,            \
    "with use_pcdn_ng, a PCDN read does not move to another level")                                               \
  X(kDownloaderConfigGroup, usePcdnNgDisableDowngrade, "use_pcdn_ng_disable_downgrade", Bool, false,              \
    "on-demand requests use the PCDN level only")                                                                 \
  X(kDownloaderConfigGroup, multiRadicalMode, "muti_radical_mode", Int32, 0,                                      \
    "multi-path aggressiveness handed to the network library")                                                    \
  X(kDownloaderConfigGroup, multiPathDelayMs, "mp_delay_ms", Int32, 0,                                            \
    "delay before a second path starts, handed to the network library")                                           \
  X(kDownloaderConfigGroup, enableLiveMp, "enable_live_mp", Bool, false, "live requests use multi-path")           \
  X(kDownloaderConfigGroup, enableLiveMr, "enable_live_mr", Bool, false, "live requests use multi-range")         \
  X(kDownloaderConfigGroup, enableMp, "enable_mp", Bool, false, "on-demand requests use multi-path")              \
  X(kDownloaderConfigGroup, forceMpOn, "force_mp_on", Bool, false, "on-demand requests use multi-path")           \
  X(kDownloaderConfigGroup, enableMr, "enable_mr", Bool, false, "on-demand requests use multi-range")             \
  X(kDownloaderLiveConfigGroup, disablePcdnLiveReadDowngrade, "disable_pcdn_live_read_downgrade", Bool, true,    \
    "a live PCDN read does not move to another level")                                                            \
  X(kDownloaderInfoGroup, canUseP2p, "canUseP2P", Bool, true, "the PCDN level may serve")                          \
  X(kHttpDownloaderKitGroup, liveOpenTimeoutMs, "live_open_timeout", Int64, 20000,                                \
    "how long a live HTTP request waits for its response")                                                        \
  X(kHttpDownloaderKitGroup, liveRetryLimit, "live_retry_limit", Int32, 50, "how often a live HTTP request retries") \
  X(kHttpDownloaderKitGroup, cellularHostByDefault, "wisp_cellular_host_default", Bool, false,                    \
    "HTTP requests go to a cellular host")                                                                        \
  X(kHttpDownloaderKitGroup, cellularHostGetType, "celluar_host_get_type", Int32, 0,                              \
    "above 0: HTTP requests go to a cellular host")                                                               \
  X(kHttpDownloaderKitGroup, cellularHostNonNull, "wisp_cellular_host_nonull", Bool, false,                       \
    "without a cellular host for the gear, the URL's own host is used")                                           \
  X(kHttpDownloaderKitGroup, reportLast, "report_last", Bool, true,                                               \
    "the HTTP executor keeps its last request's record for the host")                                             \
  X(kHttpDownloaderKitGroup, enableFill, "enable_fill", Bool, true,                                               \
    "the HTTP executor fills the player's event text")                                                            \
  X(kHttpDownloaderKitGroup, proxy, "proxy", String, "", "proxy of HTTP requests (empty: none)")                  \
  X(kHttpDownloaderKitGroup, caFile, "ca_file", String, "",                                                       \
    "certificate authorities of HTTP requests (empty: the system's)")                                             \
  X(kHttpDownloaderKitGroup, tlsInsecure, "tls_insecure", Bool, false, "HTTPS certificates are not checked")      \
  X(kHttpDownloaderKitGroup, userAgent, "user_agent", String, "",                                                 \
    "User-Agent of HTTP requests unless the request names one (empty: none)")                                     \
  X(kPlayStartConfigGroup, speedScale, "speed_scale", String, "0",                                                \
    "above 0: HTTP speed limit as this multiple of the last measured speed")                                      \
  X(kPlayStartConfigGroup, bitRateFactor, "bit_rate_factor", String, "1.0",                                       \
    "multiplies the bit rate handed to the network library")

// X(field, key, type, default, meaning)
#define DL_REQUEST_PARAMS(X)                                                                                       \
  X(playerId, "player_id", Int32, -1, "the player the request belongs to")                                        \
  X(sliceIndex, "slice_index", Int32, 0, "index of the segment in its playlist")                                  \
  X(cacheType, "cache_type", Int32, -1, "above 0 adds the PCDN level; 1 keeps the HTTP level away")               \
  X(downloadLevel, "download_level", OptInt32, std::nullopt, "replaces the configured download_level mask")       \
  X(isLive, "is_live", Bool, false, "a live stream")                                                               \
  X(preload, "preload", Bool, false, "a preload, not a playing stream")                                            \
  X(preloadBuffer, "preload_buffer", Bool, false, "a playing request that a preload may have started")           \
  X(forceCdn, "force_cdn", Bool, false, "keeps the PCDN level away")                                               \
  X(downgraded, "dl_downgrade", Bool, false, "the request fell to HTTP from another level")                        \
  X(disableReadDowngrade, "disable_read_downgrade", Bool, false, "a read does not move to another level")         \
  X(rangeStart, "range_start", Int64, 0, "offset of the first byte wanted")                                        \
  X(rangeEnd, "range_end", Int64, 0, "above 0: offset of the last byte wanted")                                   \
  X(bitRate, "bit_rate", Int64, 0, "bit rate of the media in bits per second")                                    \
  X(bufferDurationMs, "buffer_duration", Int64, -1, "the player's buffered duration at open")                     \
  X(bufferMs, "buffer", OptInt32, std::nullopt, "the player's buffered duration; replaces buffer_duration")       \
  X(traceUrl, "traceUrl", String, "", "trace address handed to the network library")                              \
  X(streamType, "stream_type", String, "", "the host's stream type, answered back by the stream")                 \
  X(channelType, "channelType", OptString, std::nullopt, "the host's channel type for statistics")                \
  X(jobType, "job_type", OptString, std::nullopt, "the host's job type for statistics")                           \
  X(trackInfo, "track_info", OptString, std::nullopt, "JSON description of the track, for statistics")            \
  X(playlistUrl, "m3u8_url", OptString, std::nullopt, "the playlist the segment belongs to (logged)")

// The settings of a configuration, read by DownloaderSettings::Read.
struct DownloaderSettings {
#define DL_SETTING_FIELD(group, field, key, type, fallback, meaning) setting_type::type field = fallback;
  DL_DOWNLOADER_SETTINGS(DL_SETTING_FIELD)
#undef DL_SETTING_FIELD

  // Defaults for an empty `config`. Inside an OpenScope of `config` on the
  // calling thread, the scope's settings, without asking `config` again.
  static DownloaderSettings Read(const ConfigPtr& config);

  // A stream's open reads its settings once, and every layer that open
  // reaches on the same thread (the levels, the filters and executors, the
  // cache writer and cleaner) sees those same values: one open, one
  // configuration, and no layer pays for reading some eighty keys again.
  // Scopes nest; the innermost one counts. Lives on the stack of the thread
  // that made it; `settings` must outlive it.
  class OpenScope {
   public:
    OpenScope(const ConfigPtr& config, const DownloaderSettings& settings);
    ~OpenScope();
    OpenScope(const OpenScope&) = delete;
    OpenScope& operator=(const OpenScope&) = delete;

   private:
    friend struct DownloaderSettings;
    const protocols::IConfigure* const config_;
    const DownloaderSettings& settings_;
    const OpenScope* const outer_;
  };
};

// The parameters of one request, read by RequestParams::Read.
struct RequestParams {
#define DL_PARAM_FIELD(field, key, type, fallback, meaning) setting_type::type field = fallback;
  DL_REQUEST_PARAMS(DL_PARAM_FIELD)
#undef DL_PARAM_FIELD

  static RequestParams Read(const StreamParams& params);
};

// A setting whose key is a prefix completed at the time of reading.
struct SettingPrefix {
  const char* group;
  const char* keyPrefix;
  const char* defaultValue;
};
// "cellular_host_gear_" + gear: the cellular host of a quality gear.
extern const SettingPrefix kCellularHostGearSetting;
std::string ReadPrefixedSetting(const ConfigPtr& config, const SettingPrefix& setting, const std::string& suffix);

// ParseInt32's clamping, for a value read as 64 bits that one consumer wants as 32.
int32_t ClampToInt32(int64_t value);

// One row of the list in docs/settings.md. Request parameters have the group
// "request"; a prefix setting's key ends in "*".
struct SettingRow {
  std::string group;
  std::string key;
  std::string type;
  std::string defaultText;  // "(empty)" for "", "(absent)" for an unnamed Opt parameter
  std::string meaning;
};
std::vector<SettingRow> SettingRows();

}  // namespace downloader

#endif  // DOWNLOADER_BASE_SETTINGS_H_
