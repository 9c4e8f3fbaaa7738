// Pulse data: the player's periodic report to its tunnel, a map from key to
// one typed value. A PulseDataDef names one entry and its type, so that the
// host writes and the library reads the same member of the union.
//
//   PulseData pulse;
//   PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, 3500);
//   int bufferMs = -1;
//   PulseDataDef<int>(kPulseBufferDurationKey).Read(pulse, &bufferMs);
//
// Values are plain data: copy freely, share read-only across threads.
#ifndef DOWNLOADER_PIPE_PULSEDATADEF_H_
#define DOWNLOADER_PIPE_PULSEDATADEF_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>

#include <downloader/DownloaderExport.h>

namespace downloader {

union ValueStore {
  int intValue;
  float floatValue;
  bool boolValue;
  int64_t int64Value;
};

using PulseData = std::unordered_map<std::string, ValueStore>;

// The player's buffered duration in milliseconds (int).
DOWNLOADER_EXPORT extern const char kPulseBufferDurationKey[];  // "buffer_duration"
// The bit rate the player currently plays, bits per second (int64).
DOWNLOADER_EXPORT extern const char kPulseBitRateKey[];  // "bit_rate"

// Which member of the union holds a value of type T.
template <typename T>
struct ValueStoreMember;
template <>
struct ValueStoreMember<int> {
  static constexpr int ValueStore::*kMember = &ValueStore::intValue;
};
template <>
struct ValueStoreMember<float> {
  static constexpr float ValueStore::*kMember = &ValueStore::floatValue;
};
template <>
struct ValueStoreMember<bool> {
  static constexpr bool ValueStore::*kMember = &ValueStore::boolValue;
};
template <>
struct ValueStoreMember<int64_t> {
  static constexpr int64_t ValueStore::*kMember = &ValueStore::int64Value;
};

// Instantiated for int, float, bool and int64_t.
template <typename T>
struct PulseDataDef {
  PulseDataDef() = default;
  explicit PulseDataDef(std::string entryKey) : key(std::move(entryKey)) {}

  // False, and *value untouched, when the entry is absent.
  bool Read(const PulseData& data, T* value) const {
    auto entry = data.find(key);
    if (entry == data.end()) return false;
    *value = entry->second.*ValueStoreMember<T>::kMember;
    return true;
  }
  void Write(PulseData* data, T value) const {
    ValueStore store;
    store.int64Value = 0;
    store.*ValueStoreMember<T>::kMember = value;
    (*data)[key] = store;
  }

  std::string key;
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_PULSEDATADEF_H_
