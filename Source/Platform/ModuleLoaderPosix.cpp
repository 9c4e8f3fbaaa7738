#include "Platform/ModuleLoader.h"

#include <dlfcn.h>

namespace downloader {
namespace platform {

const char kPcdnModuleName[] = "libpcdn_x64.so";
const char kPcdnNgModuleName[] = "libpcdn_ng_x64.so";
const char kXcdnModuleName[] = "libXcdnApi.so";

// The reference that dlopen takes is kept on purpose: it is what keeps the
// bound function pointers valid should the host close its own handle.

ModuleHandle FindLoadedModule(const std::string& name) {
  return dlopen(name.c_str(), RTLD_NOW | RTLD_NOLOAD);
}

ModuleHandle LoadModule(const std::string& nameOrPath) {
  return dlopen(nameOrPath.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* FindSymbol(ModuleHandle module, const char* symbol) {
  if (module == nullptr) return nullptr;
  dlerror();
  return dlsym(module, symbol);
}

std::string LastModuleError() {
  const char* message = dlerror();
  return message == nullptr ? std::string() : std::string(message);
}

}  // namespace platform
}  // namespace downloader
