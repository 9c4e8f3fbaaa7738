// Reading helpers for executor tests: read loops that stop at the end of the
// data, at a failure or at a deadline, and the check of bytes against
// dlorigin's synthetic content.
#ifndef TESTS_FILTER_EXECUTORREADING_H_
#define TESTS_FILTER_EXECUTORREADING_H_

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/Packet.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Filter/SubCode.h>

#include "SyntheticContent.h"

namespace dltest {

using downloader::SubCodeTag;

// Reads that answer "nothing yet" (code 0, no byte) are retried until this passes.
constexpr std::chrono::seconds kReadDeadline{30};

inline DLReadResult ReadOnce(downloader::IDownloadExecutor* executor, uint64_t packetSize,
                             std::vector<uint8_t>* out = nullptr) {
  downloader::Packet packet(packetSize);
  packet.Alloc();
  DLReadResult result = executor->Read(packet);
  if (out != nullptr && result.code == kDLSuccess && result.bytes > 0) {
    const uint8_t* bytes = static_cast<const uint8_t*>(packet.GetBuffer());
    out->insert(out->end(), bytes, bytes + result.bytes);
  }
  return result;
}

// Reads until `count` bytes are in `out` (the last packet is cut to fit), or
// the read fails or ends; returns the last read's outcome.
inline DLReadResult ReadBytes(downloader::IDownloadExecutor* executor, int64_t count, uint64_t packetSize,
                              std::vector<uint8_t>* out) {
  DLReadResult last;
  const auto deadline = std::chrono::steady_clock::now() + kReadDeadline;
  while (static_cast<int64_t>(out->size()) < count && std::chrono::steady_clock::now() < deadline) {
    uint64_t wanted = std::min<uint64_t>(packetSize, static_cast<uint64_t>(count) - out->size());
    last = ReadOnce(executor, wanted, out);
    if (last.code != kDLSuccess) break;
  }
  return last;
}

// Reads until the end of the data or a failure; returns the last read's outcome.
inline DLReadResult ReadToEnd(downloader::IDownloadExecutor* executor, uint64_t packetSize,
                              std::vector<uint8_t>* out) {
  return ReadBytes(executor, std::numeric_limits<int64_t>::max(), packetSize, out);
}

inline void ExpectSynthetic(uint64_t seed, int64_t offset, const std::vector<uint8_t>& data) {
  size_t mismatch = dlorigin::FirstSyntheticMismatch(seed, static_cast<uint64_t>(offset), data.data(), data.size());
  EXPECT_EQ(mismatch, data.size()) << "first wrong byte at offset " << offset + static_cast<int64_t>(mismatch);
}

}  // namespace dltest

#endif  // TESTS_FILTER_EXECUTORREADING_H_
