// The XCDN engine, reached through wrappers that work whether or not the
// engine is present. Unlike the PCDN engine, the library maps this one
// itself ("XcdnApi.dll"; "libXcdnApi.so" on Linux) when dlXCdnEngineInit runs
// (dlXCdnCreateSource runs it on its own when the engine is not bound yet),
// then binds twelve C functions by name, in this order: "XCdnCreateSource",
// "XCdnOpenSource2", "XCdnContentLength", "XCdnReadSource",
// "XCdnStopSource", "XCdnGetProp", "XCdnSetProp2", "XCdnEngineStart",
// "XCdnEngineStop", "XCdnEngineInit", "XCdnSetQuillCallback",
// "XCdnSetBeamCallback". Binding stops at the first missing one; bound slots
// are never cleared. Any wrapper that finds its slot empty binds once more
// (an engine the host mapped itself is found that way).
//
// A wrapper whose function is still missing logs "xcdn no soload:" and
// answers -1 (int results) or 0xFFFFFFFF (status results). dlXCdnSetProp and
// dlXCdnDownloaded have no row in the table and always answer that way.
//
// The engine's analytics events (module, monitor point, measure list,
// dimension list, the lists written "key:value;key:value;") reach the host
// through one of two adapters: a map form and a JSON form. Registering one
// replaces the other in the engine.
//
// Thread rules: any thread. Register the callbacks once at start-up, before
// sources are opened; the adapters run on the engine's threads.
#ifndef DOWNLOADER_STREAM_XCDNINTERFACEHELPER_H_
#define DOWNLOADER_STREAM_XCDNINTERFACEHELPER_H_

#include <cstdint>
#include <map>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Utils/Logging.h>

// One analytics event, its lists split into pairs (dimensions first).
typedef void (*dl_beam_callback)(const std::string& module, const std::string& monitorPoint,
                                 const std::map<std::string, std::string>& dimensions,
                                 const std::map<std::string, std::string>& measures);
// One analytics event as a JSON object: {"type":"send_vpm","module":...,
// "monitorPoint":...,"dimensionValues":{...},"measureValues":{...}}, values as
// text. The text is valid only during the call.
typedef void (*dl_beam_json_callback_func)(const char* json);

namespace downloader {

class DOWNLOADER_EXPORT XcdnInterfaceHelper {
 public:
  static constexpr uint32_t kNotLoadedStatus = 0xFFFFFFFFu;
  static constexpr int kNotLoadedResult = -1;

  XcdnInterfaceHelper() = delete;

  // Binds what is not bound yet: 1 when all twelve functions are bound, 0 at
  // the first missing one. Finds the engine only if it is mapped already.
  static int EnsureSymbolLoaded();

  // Maps the engine, binds it and starts it with `config` (text).
  static uint32_t dlXCdnEngineInit(const char* config);
  static uint32_t dlXCdnEngineStart(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth);
  static int dlXCdnEngineStop(uint32_t how);

  // A source for one resource; initialises the engine first when unbound.
  static int dlXCdnCreateSource(const char* description);
  // The engine writes the opened size through `opened`.
  static int dlXCdnOpenSource(intptr_t handle, const char* resource, uint32_t flags, int64_t* opened);
  static int64_t dlXCdnContentLength(intptr_t handle, uint32_t which);
  // The count read comes back through `bytesRead`.
  static int dlXCdnReadSource(intptr_t handle, void* buffer, int64_t* bytesRead, int64_t size, uint32_t flags);
  static int dlXCdnStopSource(intptr_t handle);
  static uint32_t dlXCdnGetProp(uintptr_t handleOrKey, void* property, uintptr_t buffer, uintptr_t size);
  static uint32_t dlXCdnSetProp2(uint32_t propertyId, uintptr_t value, uintptr_t size);
  // Never bound: always kNotLoadedStatus.
  static uint32_t dlXCdnSetProp(uintptr_t property, uintptr_t value, uintptr_t size);
  // Never bound: always -1.
  static int dlXCdnDownloaded(const char* resource, uint32_t flags, uintptr_t buffer, uintptr_t size);

  // The engine's log lines go straight to `callback`.
  static void dlXCdnSetQuillCallback(dl_quill_callback callback);
  static void dlXCdnSetBeamCallback(dl_beam_callback callback);
  static void dlXCdnSetJsonBeamCallback(dl_beam_json_callback_func callback);
};

}  // namespace downloader

// The host's way to run the XCDN engine without the object interface; each
// forwards to the wrapper of the same role, arguments and result unchanged.
extern "C" {
DOWNLOADER_EXPORT uint32_t cCacheDownload_Init(const char* config);
DOWNLOADER_EXPORT uint32_t cCacheDownload_StartDownload(uintptr_t first, uintptr_t second, uintptr_t third,
                                                        uintptr_t fourth);
DOWNLOADER_EXPORT int cCacheDownload_StopDownload(uint32_t how);
}

#endif  // DOWNLOADER_STREAM_XCDNINTERFACEHELPER_H_
