#include <downloader/Base/DLReadResult.h>

#include <utility>

DLReadResult::DLReadResult() : bytes(0) {}

DLReadResult::DLReadResult(const DLReadResult& other) = default;

DLReadResult::DLReadResult(DLReadResult&& other) noexcept
    : DLResultCode(std::move(other)), bytes(other.bytes) {}

DLReadResult& DLReadResult::operator=(const DLReadResult& other) = default;

DLReadResult& DLReadResult::operator=(DLReadResult&& other) noexcept {
  DLResultCode::operator=(std::move(other));
  bytes = other.bytes;
  return *this;
}

DLReadResult::~DLReadResult() = default;

void DLReadResult::Set(int32_t newCode, uint64_t newBytes, int64_t newSubCode) {
  code = newCode;
  bytes = newBytes;
  subCode = newSubCode;
}
