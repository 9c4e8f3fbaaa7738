#include <downloader/Stream/XcdnInterfaceHelper.h>

#include <cstddef>

#include "Platform/ModuleLoader.h"
#include "Stream/SymbolBinding.h"
#include "Stream/XcdnBeamAdapter.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

using CreateSourceFn = int (*)(const char*);
using OpenSourceFn = int (*)(intptr_t, const char*, uint32_t, int64_t*);
using ContentLengthFn = int64_t (*)(intptr_t, uint32_t);
using ReadSourceFn = int (*)(intptr_t, void*, int64_t*, int64_t, uint32_t);
using StopSourceFn = int (*)(intptr_t);
using GetPropFn = uint32_t (*)(uintptr_t, void*, uintptr_t, uintptr_t);
using SetProp2Fn = uint32_t (*)(uint32_t, uintptr_t, uintptr_t);
using EngineStartFn = uint32_t (*)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, int);
using EngineStopFn = int (*)(uint32_t);
using EngineInitFn = uint32_t (*)(const char*, const char*);
using SetQuillCallbackFn = void (*)(dl_quill_callback);
using SetBeamCallbackFn = void (*)(XcdnEngineBeamCallback);
using SetPropFn = uint32_t (*)(uintptr_t, uintptr_t, uintptr_t);
using DownloadedFn = int (*)(const char*, uint32_t, uintptr_t, uintptr_t);

using Slot = BindingSlot;

Slot g_createSource{nullptr};
Slot g_openSource{nullptr};
Slot g_contentLength{nullptr};
Slot g_readSource{nullptr};
Slot g_stopSource{nullptr};
Slot g_getProp{nullptr};
Slot g_setProp2{nullptr};
Slot g_engineStart{nullptr};
Slot g_engineStop{nullptr};
Slot g_engineInit{nullptr};
Slot g_setQuillCallback{nullptr};
Slot g_setBeamCallback{nullptr};
// No row fills these two: their wrappers always take the not-loaded path.
Slot g_setProp{nullptr};
Slot g_downloaded{nullptr};

constexpr BindingRow kXcdnBindingTable[] = {
    {&g_createSource, "XCdnCreateSource"},
    {&g_openSource, "XCdnOpenSource2"},
    {&g_contentLength, "XCdnContentLength"},
    {&g_readSource, "XCdnReadSource"},
    {&g_stopSource, "XCdnStopSource"},
    {&g_getProp, "XCdnGetProp"},
    {&g_setProp2, "XCdnSetProp2"},
    {&g_engineStart, "XCdnEngineStart"},
    {&g_engineStop, "XCdnEngineStop"},
    {&g_engineInit, "XCdnEngineInit"},
    {&g_setQuillCallback, "XCdnSetQuillCallback"},
    {&g_setBeamCallback, "XCdnSetBeamCallback"},
};
static_assert(sizeof(kXcdnBindingTable) / sizeof(kXcdnBindingTable[0]) == 12, "twelve engine functions are bound");

constexpr int kEngineStartLastArgument = 0;
constexpr int kBound = 1;
constexpr int kUnbound = 0;
constexpr int kNeverDownloaded = -1;

// The wrapper's function, binding first when its slot is empty; null (after
// the "xcdn no soload:" line) when the engine still does not offer it.
template <typename Fn>
Fn Bound(const Slot& slot, const char* symbol) {
  if (IsEmpty(slot)) XcdnInterfaceHelper::EnsureSymbolLoaded();
  Fn function = SlotAs<Fn>(slot);
  if (function == nullptr) {
    DL_LOGW << "xcdn no soload:" << symbol;
  }
  return function;
}

void MapEngineModule() {
  if (platform::LoadModule(platform::kXcdnModuleName) != nullptr) {
    DL_LOGI << "xcdn load library success:" << platform::kXcdnModuleName;
  } else {
    DL_LOGW << "xcdn load library failed:" << platform::LastModuleError();
  }
}

}  // namespace

int XcdnInterfaceHelper::EnsureSymbolLoaded() {
  constexpr size_t kRowCount = sizeof(kXcdnBindingTable) / sizeof(kXcdnBindingTable[0]);
  return BindSymbols(platform::kXcdnModuleName, kXcdnBindingTable, kRowCount) ? kBound : kUnbound;
}

uint32_t XcdnInterfaceHelper::dlXCdnEngineInit(const char* config) {
  MapEngineModule();
  auto engineInit = Bound<EngineInitFn>(g_engineInit, "XCdnEngineInit");
  if (engineInit == nullptr) return kNotLoadedStatus;
  return engineInit(config, "");
}

uint32_t XcdnInterfaceHelper::dlXCdnEngineStart(uintptr_t first, uintptr_t second, uintptr_t third,
                                                uintptr_t fourth) {
  auto engineStart = Bound<EngineStartFn>(g_engineStart, "XCdnEngineStart");
  if (engineStart == nullptr) return kNotLoadedStatus;
  return engineStart(first, second, third, fourth, kEngineStartLastArgument);
}

int XcdnInterfaceHelper::dlXCdnEngineStop(uint32_t how) {
  auto engineStop = Bound<EngineStopFn>(g_engineStop, "XCdnEngineStop");
  if (engineStop == nullptr) return kNotLoadedResult;
  return engineStop(how);
}

int XcdnInterfaceHelper::dlXCdnCreateSource(const char* description) {
  if (IsEmpty(g_createSource)) {
    DL_LOGI << "xcdn init from local source .";
    dlXCdnEngineInit("");
  }
  auto createSource = Bound<CreateSourceFn>(g_createSource, "XCdnCreateSource");
  if (createSource == nullptr) return kNotLoadedResult;
  return createSource(description);
}

int XcdnInterfaceHelper::dlXCdnOpenSource(intptr_t handle, const char* resource, uint32_t flags,
                                          int64_t* opened) {
  auto openSource = Bound<OpenSourceFn>(g_openSource, "XCdnOpenSource2");
  if (openSource == nullptr) return kNotLoadedResult;
  return openSource(handle, resource, flags, opened);
}

int64_t XcdnInterfaceHelper::dlXCdnContentLength(intptr_t handle, uint32_t which) {
  auto contentLength = Bound<ContentLengthFn>(g_contentLength, "XCdnContentLength");
  if (contentLength == nullptr) return kNotLoadedResult;
  return contentLength(handle, which);
}

int XcdnInterfaceHelper::dlXCdnReadSource(intptr_t handle, void* buffer, int64_t* bytesRead, int64_t size,
                                          uint32_t flags) {
  auto readSource = Bound<ReadSourceFn>(g_readSource, "XCdnReadSource");
  if (readSource == nullptr) return kNotLoadedResult;
  return readSource(handle, buffer, bytesRead, size, flags);
}

int XcdnInterfaceHelper::dlXCdnStopSource(intptr_t handle) {
  auto stopSource = Bound<StopSourceFn>(g_stopSource, "XCdnStopSource");
  if (stopSource == nullptr) return kNotLoadedResult;
  return stopSource(handle);
}

uint32_t XcdnInterfaceHelper::dlXCdnGetProp(uintptr_t handleOrKey, void* property, uintptr_t buffer,
                                            uintptr_t size) {
  auto getProp = Bound<GetPropFn>(g_getProp, "XCdnGetProp");
  if (getProp == nullptr) return kNotLoadedStatus;
  return getProp(handleOrKey, property, buffer, size);
}

uint32_t XcdnInterfaceHelper::dlXCdnSetProp2(uint32_t propertyId, uintptr_t value, uintptr_t size) {
  auto setProp2 = Bound<SetProp2Fn>(g_setProp2, "XCdnSetProp2");
  if (setProp2 == nullptr) return kNotLoadedStatus;
  return setProp2(propertyId, value, size);
}

uint32_t XcdnInterfaceHelper::dlXCdnSetProp(uintptr_t property, uintptr_t value, uintptr_t size) {
  auto setProp = Bound<SetPropFn>(g_setProp, "XCdnSetProp");
  if (setProp == nullptr) return kNotLoadedStatus;
  return setProp(property, value, size);
}

int XcdnInterfaceHelper::dlXCdnDownloaded(const char* resource, uint32_t flags, uintptr_t buffer,
                                          uintptr_t size) {
  auto downloaded = Bound<DownloadedFn>(g_downloaded, "XCdnDownloaded");
  if (downloaded == nullptr) return kNeverDownloaded;
  return static_cast<int8_t>(downloaded(resource, flags, buffer, size) & 0xFF);
}

void XcdnInterfaceHelper::dlXCdnSetQuillCallback(dl_quill_callback callback) {
  auto setQuillCallback = Bound<SetQuillCallbackFn>(g_setQuillCallback, "XCdnSetQuillCallback");
  if (setQuillCallback == nullptr) return;
  DL_LOGI << "xcdn set quill";
  setQuillCallback(callback);
}

void XcdnInterfaceHelper::dlXCdnSetBeamCallback(dl_beam_callback callback) {
  XcdnBeamAdapter::SetHostCallback(callback);
  auto setBeamCallback = Bound<SetBeamCallbackFn>(g_setBeamCallback, "XCdnSetBeamCallback");
  if (setBeamCallback == nullptr) return;
  DL_LOGI << "xcdn set beam";
  setBeamCallback(&XcdnBeamAdapter::XcdnBeamCallback);
}

void XcdnInterfaceHelper::dlXCdnSetJsonBeamCallback(dl_beam_json_callback_func callback) {
  XcdnBeamAdapter::SetHostJsonCallback(callback);
  if (IsEmpty(g_setBeamCallback)) EnsureSymbolLoaded();
  auto setBeamCallback = SlotAs<SetBeamCallbackFn>(g_setBeamCallback);
  if (setBeamCallback == nullptr) return;
  DL_LOGI << "xcdn set beam";
  setBeamCallback(&XcdnBeamAdapter::XcdnJsonBeamCallback);
}

}  // namespace downloader

uint32_t cCacheDownload_Init(const char* config) { return downloader::XcdnInterfaceHelper::dlXCdnEngineInit(config); }

uint32_t cCacheDownload_StartDownload(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth) {
  return downloader::XcdnInterfaceHelper::dlXCdnEngineStart(first, second, third, fourth);
}

int cCacheDownload_StopDownload(uint32_t how) { return downloader::XcdnInterfaceHelper::dlXCdnEngineStop(how); }
