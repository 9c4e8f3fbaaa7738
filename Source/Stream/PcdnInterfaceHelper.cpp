#include <downloader/Stream/PcdnInterfaceHelper.h>

#include <cstddef>
#include <vector>

#include "Base/SmartDns.h"
#include "Platform/ModuleLoader.h"
#include "Stream/SymbolBinding.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

using OpenFn = int64_t (*)(const char*, int, const char*);
using ReadFn = int (*)(int64_t, int, const char*, int64_t, int64_t, const char*, PCDNReadCallback);
using GetFn = const char* (*)(const char*, char*, int);
using SetByKVFn = int (*)(const char*, const char*);
using GetByKVFn = const char* (*)(const char*, const char*, char*, int);
using SetMetaFn = int (*)(int64_t, int, int64_t, float, const char*, int);
using CloseFn = int (*)(int64_t);
using SetTraceCallbackFn = int64_t (*)(PCDNTraceCallback);
using NGGetFn = const char* (*)(const char*, const char*, char*, int);

using Slot = BindingSlot;

Slot g_open{nullptr};
Slot g_read{nullptr};
Slot g_get{nullptr};
Slot g_setByKV{nullptr};
Slot g_getByKV{nullptr};
Slot g_setMeta{nullptr};
Slot g_close{nullptr};
Slot g_setTraceCallback{nullptr};
Slot g_ngGet{nullptr};

// The ninth row names the NG keyed read; the loader stops before it, so its
// slot stays empty for the life of the process.
constexpr BindingRow kPcdnBindingTable[] = {
    {&g_open, "PCDNOpen"},
    {&g_read, "PCDNRead"},
    {&g_get, "PCDNGet"},
    {&g_setByKV, "PCDNSetByKV"},
    {&g_getByKV, "PCDNGetByKV"},
    {&g_setMeta, "PCDNSetMeta"},
    {&g_close, "PCDNClose"},
    {&g_setTraceCallback, "PCDNSetTraceCallback"},
    {&g_ngGet, "PCDNNGGet"},
};
constexpr size_t kLoaderRowCount = 8;
static_assert(sizeof(kPcdnBindingTable) / sizeof(kPcdnBindingTable[0]) == kLoaderRowCount + 1,
              "the NG row follows the rows the loader walks");

constexpr int64_t kUnboundOpenResult = 0;
constexpr int kUnboundIntResult = 0;
constexpr int64_t kUnboundTraceResult = -1;
constexpr int64_t kNoDownloadStarted = -1;
constexpr int kNotCheckable = -1;

// The wrapper's function, binding first when its slot is empty; null when the
// engine still does not offer it.
template <typename Fn>
Fn Bound(const Slot& slot) {
  if (IsEmpty(slot)) PcdnInterfaceHelper::EnsureSymbolLoaded();
  return SlotAs<Fn>(slot);
}

}  // namespace

bool PcdnInterfaceHelper::EnsureSymbolLoaded() {
  return BindSymbols(platform::kPcdnModuleName, kPcdnBindingTable, kLoaderRowCount);
}

bool PcdnInterfaceHelper::NGEnsureSymbolLoaded() { return false; }

std::string PcdnInterfaceHelper::dlCreateFinalUrl(std::string url) {
  std::vector<std::string> addresses = dl_getSmartDnsResult(url);
  if (addresses.empty()) return url;
  url += url.find('?') == std::string::npos ? "?ips=" : "&ips=";
  for (size_t index = 0; index < addresses.size(); ++index) {
    DL_LOGD << "ips:" << addresses[index] << ", at:" << index;
    if (index > 0) url += '_';
    url += addresses[index];
  }
  return url;
}

int64_t PcdnInterfaceHelper::dlPCDNOpen(const char* resource, int mode, const char* params) {
  auto open = Bound<OpenFn>(g_open);
  if (open == nullptr) return kUnboundOpenResult;
  int64_t downloadId = open(resource, mode, params);
  DL_LOGI << "download_id:" << downloadId;
  return downloadId;
}

int PcdnInterfaceHelper::dlPCDNRead(int64_t id, int mode, const char* url, int64_t rangeStart,
                                    int64_t rangeEnd, const char* params, PCDNReadCallback callback) {
  auto read = Bound<ReadFn>(g_read);
  if (read == nullptr) return kUnboundIntResult;
  std::string finalUrl = dlCreateFinalUrl(url == nullptr ? std::string() : std::string(url));
  DL_LOGI << "session_id:" << id << ", url:" << finalUrl;
  return read(id, mode, finalUrl.c_str(), rangeStart, rangeEnd, params, callback);
}

int PcdnInterfaceHelper::dlPCDNClose(int64_t id) {
  auto close = Bound<CloseFn>(g_close);
  if (close == nullptr) return kUnboundIntResult;
  DL_LOGI << "close sessionid " << id;
  return close(id);
}

int PcdnInterfaceHelper::dlPCDNSetMeta(int64_t id, int intValue, int64_t longValue, float floatValue,
                                       const char* text, int flag) {
  auto setMeta = Bound<SetMetaFn>(g_setMeta);
  if (setMeta == nullptr) return kUnboundIntResult;
  return setMeta(id, intValue, longValue, floatValue, text, flag);
}

int PcdnInterfaceHelper::dlPCDNSetByKV(const char* key, const char* value) {
  if (IsEmpty(g_setByKV)) EnsureSymbolLoaded();
  if (key != nullptr) {
    std::string command(key);
    if (command == "itf-start-cur-load") {
      DL_LOGI << "dlPCDNSetByKV_itf-start-cur-load====";
    }
    if (command == "itf-stop-cur-load") {
      DL_LOGI << "dlPCDNSetByKV_itf-stop-cur-load====";
    }
  }
  auto setByKV = SlotAs<SetByKVFn>(g_setByKV);
  if (setByKV == nullptr) return kUnboundIntResult;
  return setByKV(key, value);
}

const char* PcdnInterfaceHelper::dlPCDNGet(const char* key, char* buffer, int size) {
  auto get = Bound<GetFn>(g_get);
  if (get == nullptr) return nullptr;
  return get(key, buffer, size);
}

const char* PcdnInterfaceHelper::dlPCDNGetByKV(const char* key, const char* argument, char* buffer, int size) {
  auto getByKV = Bound<GetByKVFn>(g_getByKV);
  if (getByKV == nullptr) return nullptr;
  return getByKV(key, argument, buffer, size);
}

int64_t PcdnInterfaceHelper::dlPCDNSetTraceCallback(PCDNTraceCallback callback) {
  auto setTraceCallback = Bound<SetTraceCallbackFn>(g_setTraceCallback);
  if (setTraceCallback == nullptr) return kUnboundTraceResult;
  return setTraceCallback(callback);
}

const char* PcdnInterfaceHelper::dlPCDNNGGet(const char* key, const char* argument, char* buffer, int size) {
  auto ngGet = SlotAs<NGGetFn>(g_ngGet);
  if (ngGet == nullptr) return nullptr;
  return ngGet(key, argument, buffer, size);
}

const char* PcdnInterfaceHelper::dlPCDNLoad(const char* /*key*/, char* /*buffer*/, int /*size*/) {
  return nullptr;
}

int PcdnInterfaceHelper::dlPCDNRemove(const char* /*resource*/) { return 0; }

int64_t PcdnInterfaceHelper::dlPCDNDownload(const char* /*url*/, const char* /*savePath*/,
                                            const char* /*params*/, int /*flag*/,
                                            PCDNDownloadCallback /*callback*/) {
  return kNoDownloadStarted;
}

int PcdnInterfaceHelper::dlPCDNCheckComplete(const char* /*resource*/, int /*flag*/, char* /*buffer*/,
                                             int /*size*/) {
  return kNotCheckable;
}

}  // namespace downloader
