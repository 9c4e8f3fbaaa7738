#include "Stream/DLLLoader.h"

#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

platform::ModuleHandle FindMapped(const std::string& modulePath) {
  platform::ModuleHandle handle = platform::FindLoadedModule(modulePath);
  if (handle == nullptr) {
    DL_LOGW << "dlopen failed with path:" << modulePath;
  }
  return handle;
}

}  // namespace

DLLLoader::DLLLoader(const std::string& modulePath)
    : modulePath_(modulePath), handle_(FindMapped(modulePath)) {}

void* DLLLoader::Sym(const char* symbol) const {
  if (handle_ == nullptr) {
    DL_LOGW << "dlsym called with handler == nullptr";
    return nullptr;
  }
  void* address = platform::FindSymbol(handle_, symbol);
  DL_LOGD << "dlsym called with result:" << address;
  if (address == nullptr) {
    DL_LOGW << "dlfcn error encountered:" << platform::LastModuleError();
  }
  return address;
}

}  // namespace downloader
