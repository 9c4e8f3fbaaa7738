// The PCDN engine, reached through wrappers that work whether or not the
// engine is in the process. The host maps the engine module ("pcdn_x64.dll";
// "libpcdn_x64.so" on Linux); the library only finds it there, never loads
// it, and binds the engine's C functions by name the first time a wrapper
// needs one.
//
// Binding walks eight symbols in a fixed order: "PCDNOpen", "PCDNRead",
// "PCDNGet", "PCDNSetByKV", "PCDNGetByKV", "PCDNSetMeta", "PCDNClose",
// "PCDNSetTraceCallback". It stops at the first one missing: the functions
// before it stay bound, it and those after it stay unbound. While any slot a
// wrapper needs is empty, each call of that wrapper retries the binding, so
// an engine mapped after the first call is picked up by the next one. Bound
// slots are never cleared. "PCDNNGGet" is never bound: dlPCDNNGGet always
// answers null.
//
// Every wrapper passes arguments and results through unchanged when its
// function is bound, and otherwise answers a fixed value without calling
// anything: 0 for open, read, close, set-meta and set-by-key; null for the
// two reads of values; -1 for the trace callback registration.
//
// Thread rules: every function may be called from any thread; the wrappers
// are not serialised with one another. The engine calls the read, trace and
// download callbacks on its own threads.
#ifndef DOWNLOADER_STREAM_PCDNINTERFACEHELPER_H_
#define DOWNLOADER_STREAM_PCDNINTERFACEHELPER_H_

#include <cstdint>
#include <string>

#include <downloader/DownloaderExport.h>

extern "C" {

// Delivered pieces and completion or error notices of one engine read.
typedef int (*PCDNReadCallback)(int64_t id, int64_t offset, int kind, const char* data, int64_t length,
                                int64_t total, int code, const char* info);
// One of the engine's own log lines.
typedef void (*PCDNTraceCallback)(const char* text, int level);
// Events of a whole-file download.
typedef int (*PCDNDownloadCallback)(int64_t id, int index, int type, int resultCode, const char* extendInfo);

}  // extern "C"

namespace downloader {

class DOWNLOADER_EXPORT PcdnInterfaceHelper {
 public:
  PcdnInterfaceHelper() = delete;

  // Binds what is not bound yet; true when all eight functions are bound.
  static bool EnsureSymbolLoaded();
  // Always false: the NG engine is bound by its own executor.
  static bool NGEnsureSymbolLoaded();

  // `url` with the resolved server addresses of its host appended as
  // "?ips=a_b_c" (or "&ips=..." when it already has a query); unchanged when
  // no address is known.
  static std::string dlCreateFinalUrl(std::string url);

  // Engine download id for the resource; 0 when unbound. Logs "download_id:".
  static int64_t dlPCDNOpen(const char* resource, int mode, const char* params);
  // Asks for the range [rangeStart, rangeEnd] of `url`, which is first turned
  // into its final URL; the engine answers through `callback`. 0 when unbound.
  static int dlPCDNRead(int64_t id, int mode, const char* url, int64_t rangeStart, int64_t rangeEnd,
                        const char* params, PCDNReadCallback callback);
  static int dlPCDNClose(int64_t id);
  static int dlPCDNSetMeta(int64_t id, int intValue, int64_t longValue, float floatValue, const char* text,
                           int flag);
  static int dlPCDNSetByKV(const char* key, const char* value);
  // The answer is written into `buffer` (`size` bytes) by the engine.
  static const char* dlPCDNGet(const char* key, char* buffer, int size);
  static const char* dlPCDNGetByKV(const char* key, const char* argument, char* buffer, int size);
  static int64_t dlPCDNSetTraceCallback(PCDNTraceCallback callback);
  static const char* dlPCDNNGGet(const char* key, const char* argument, char* buffer, int size);

  // Kept for the exported interface; no engine function stands behind them.
  static const char* dlPCDNLoad(const char* key, char* buffer, int size);  // null
  static int dlPCDNRemove(const char* resource);                          // 0
  static int64_t dlPCDNDownload(const char* url, const char* savePath, const char* params, int flag,
                                PCDNDownloadCallback callback);             // -1
  static int dlPCDNCheckComplete(const char* resource, int flag, char* buffer, int size);  // -1
};

}  // namespace downloader

#endif  // DOWNLOADER_STREAM_PCDNINTERFACEHELPER_H_
