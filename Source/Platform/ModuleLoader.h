// The one seam between the library and the platform's module loader: finding
// a module that the host has already mapped into the process, mapping one,
// and looking symbols up in it. Module names and paths are narrow strings; the
// Windows half converts them through the system ANSI code page.
//
// Thread rules: every function may be called from any thread; the system
// loader serialises itself.
//
// Edge cases every implementation follows:
// - FindLoadedModule never maps anything: a module that is not in the process
//   yields null, even when a file of that name could be loaded.
// - A handle from either function is never released by this seam: modules
//   found or mapped here stay in the process until it ends, so function
//   pointers taken from them never dangle.
// - FindSymbol with a null handle yields null without asking the system.
// - LastModuleError describes the most recent failure of the calling thread;
//   read it right after the failing call.
#ifndef DOWNLOADER_PLATFORM_MODULELOADER_H_
#define DOWNLOADER_PLATFORM_MODULELOADER_H_

#include <string>

namespace downloader {
namespace platform {

using ModuleHandle = void*;

// The engines' module file names on this platform ("pcdn_x64.dll" on
// Windows, "libpcdn_x64.so" elsewhere, and so on).
extern const char kPcdnModuleName[];
extern const char kPcdnNgModuleName[];
extern const char kXcdnModuleName[];

// The module of that file name already mapped into the process, or null.
ModuleHandle FindLoadedModule(const std::string& name);

// Maps the module (a bare file name is searched the platform's way; on
// Windows its own dependencies are searched for beside it). Null on failure.
ModuleHandle LoadModule(const std::string& nameOrPath);

// The address of `symbol` in `module`, or null.
void* FindSymbol(ModuleHandle module, const char* symbol);

// The last loader failure as text: the error number on Windows, the loader's
// message elsewhere.
std::string LastModuleError();

}  // namespace platform
}  // namespace downloader

#endif  // DOWNLOADER_PLATFORM_MODULELOADER_H_
