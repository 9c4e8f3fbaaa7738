#include "Stream/SymbolBinding.h"

#include "Stream/DLLLoader.h"

namespace downloader {

bool BindSymbols(const std::string& moduleName, const BindingRow* rows, size_t count) {
  // The loader lives for this walk only: nothing but the slots is kept, so a
  // module mapped later is found by the next walk.
  DLLLoader loader(moduleName);
  for (size_t row = 0; row < count; ++row) {
    if (!IsEmpty(*rows[row].slot)) continue;
    void* address = loader.Sym(rows[row].symbol);
    if (address == nullptr) return false;
    rows[row].slot->store(address, std::memory_order_release);
  }
  return true;
}

}  // namespace downloader
