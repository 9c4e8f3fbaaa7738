// Typed reading of settings and of per-request parameters, with the one set
// of conversion rules every part of the library uses:
// - integers: the C rule for decimal text (leading blanks and sign, then the
//   leading digits; "12abc" reads 12, "abc" and "" read 0), clamped to the
//   type's range;
// - booleans: true exactly for "true" and "1"; "TRUE", "yes", "64" are false.
// For settings the default is turned into text and handed to
// IConfigure::GetValue, so a host sees the library's default; an empty
// configuration pointer yields the default. For parameters an absent key
// yields the default; a present key is converted even when empty.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_PIPE_CONFIGREADER_H_
#define DOWNLOADER_PIPE_CONFIGREADER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/IConfigure.h>

namespace downloader {

using ConfigPtr = std::shared_ptr<protocols::IConfigure>;
using StreamParams = std::map<std::string, std::string>;

// The groups the library reads.
DOWNLOADER_EXPORT extern const char kDownloaderConfigGroup[];    // "downloader_config"
DOWNLOADER_EXPORT extern const char kPlayStartConfigGroup[];     // "wisp_play_start_config"
DOWNLOADER_EXPORT extern const char kDownloaderInfoGroup[];      // "downloader_info"
DOWNLOADER_EXPORT extern const char kHttpDownloaderKitGroup[];   // "http_downloader_kit"
DOWNLOADER_EXPORT extern const char kXcdnGroup[];                // "xcdn"
DOWNLOADER_EXPORT extern const char kDownloaderLiveConfigGroup[];  // "downloader_live_config"

DOWNLOADER_EXPORT int32_t ParseInt32(const std::string& text);
DOWNLOADER_EXPORT int64_t ParseInt64(const std::string& text);
DOWNLOADER_EXPORT bool ParseBool(const std::string& text);

DOWNLOADER_EXPORT std::string ReadConfigString(const ConfigPtr& config, const std::string& group,
                                               const std::string& key, const std::string& defaultValue);
DOWNLOADER_EXPORT int32_t ReadConfigInt(const ConfigPtr& config, const std::string& group,
                                        const std::string& key, int32_t defaultValue);
DOWNLOADER_EXPORT int64_t ReadConfigInt64(const ConfigPtr& config, const std::string& group,
                                          const std::string& key, int64_t defaultValue);
DOWNLOADER_EXPORT bool ReadConfigBool(const ConfigPtr& config, const std::string& group,
                                      const std::string& key, bool defaultValue);

DOWNLOADER_EXPORT std::string ReadParamString(const StreamParams& params, const std::string& key,
                                              const std::string& defaultValue);
DOWNLOADER_EXPORT int32_t ReadParamInt(const StreamParams& params, const std::string& key,
                                       int32_t defaultValue);
DOWNLOADER_EXPORT int64_t ReadParamInt64(const StreamParams& params, const std::string& key,
                                         int64_t defaultValue);
DOWNLOADER_EXPORT bool ReadParamBool(const StreamParams& params, const std::string& key, bool defaultValue);

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_CONFIGREADER_H_
