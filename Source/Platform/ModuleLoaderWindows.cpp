#include "Platform/ModuleLoader.h"

#include <windows.h>

#include <algorithm>

namespace downloader {
namespace platform {
namespace {

// Module names are converted through the ANSI code page, as the system's own
// narrow-string loader functions would. Forward slashes become backslashes,
// which the loader requires in paths.
std::wstring ToWideModuleName(const std::string& name) {
  std::string native = name;
  std::replace(native.begin(), native.end(), '/', '\\');
  if (native.empty()) return std::wstring();
  int length = MultiByteToWideChar(CP_ACP, 0, native.data(), static_cast<int>(native.size()), nullptr, 0);
  if (length <= 0) return std::wstring();
  std::wstring wide(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CP_ACP, 0, native.data(), static_cast<int>(native.size()), &wide[0], length);
  return wide;
}

}  // namespace

const char kPcdnModuleName[] = "pcdn_x64.dll";
const char kPcdnNgModuleName[] = "pcdn_ng_x64.dll";
const char kXcdnModuleName[] = "XcdnApi.dll";

ModuleHandle FindLoadedModule(const std::string& name) {
  std::wstring wide = ToWideModuleName(name);
  if (wide.empty()) return nullptr;
  return GetModuleHandleW(wide.c_str());
}

ModuleHandle LoadModule(const std::string& nameOrPath) {
  std::wstring wide = ToWideModuleName(nameOrPath);
  if (wide.empty()) return nullptr;
  return LoadLibraryExW(wide.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

void* FindSymbol(ModuleHandle module, const char* symbol) {
  if (module == nullptr) return nullptr;
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), symbol));
}

std::string LastModuleError() { return std::to_string(GetLastError()); }

}  // namespace platform
}  // namespace downloader
