// Binding an engine's C functions by name into process-wide slots: a table
// of rows (slot, symbol) walked in order against the engine module that is
// already mapped. Shared by the PCDN and XCDN bindings.
//
// Slots go from empty to the engine's address once and are never cleared.
// They are atomic words: two threads binding at the same time write the same
// value, and the race stays defined.
#ifndef DOWNLOADER_STREAM_SYMBOLBINDING_H_
#define DOWNLOADER_STREAM_SYMBOLBINDING_H_

#include <atomic>
#include <cstddef>
#include <string>

namespace downloader {

using BindingSlot = std::atomic<void*>;

struct BindingRow {
  BindingSlot* slot;
  const char* symbol;
};

// Fills the empty slots of rows[0, count) in order from the mapped module
// `moduleName`, stopping at the first symbol that is missing (slots filled
// before it stay filled). True when every row is bound.
bool BindSymbols(const std::string& moduleName, const BindingRow* rows, size_t count);

template <typename Fn>
Fn SlotAs(const BindingSlot& slot) {
  return reinterpret_cast<Fn>(slot.load(std::memory_order_acquire));
}

inline bool IsEmpty(const BindingSlot& slot) { return slot.load(std::memory_order_acquire) == nullptr; }

}  // namespace downloader

#endif  // DOWNLOADER_STREAM_SYMBOLBINDING_H_
