// Finds a module already mapped into the process by its file name and looks
// symbols up in it. It never maps a module itself and owns no reference: a
// loader is made, asked for a few symbols, and dropped.
//
// Log lines: "dlopen failed with path:" when the module is not mapped;
// "dlsym called with handler == nullptr" for a lookup without a module;
// "dlsym called with result:" with the address of every lookup, followed by
// "dlfcn error encountered:" when the symbol is missing.
//
// Thread rules: a loader lives on one thread; its members are constant after
// construction.
#ifndef DOWNLOADER_STREAM_DLLLOADER_H_
#define DOWNLOADER_STREAM_DLLLOADER_H_

#include <string>

#include "Platform/ModuleLoader.h"

namespace downloader {

class DLLLoader {
 public:
  explicit DLLLoader(const std::string& modulePath);

  DLLLoader(const DLLLoader&) = delete;
  DLLLoader& operator=(const DLLLoader&) = delete;

  // The symbol's address, or null when the module or the symbol is missing.
  void* Sym(const char* symbol) const;

  bool IsFound() const { return handle_ != nullptr; }

 private:
  // Constant after construction.
  const std::string modulePath_;
  const platform::ModuleHandle handle_;
};

}  // namespace downloader

#endif  // DOWNLOADER_STREAM_DLLLOADER_H_
