#include <downloader/Base/DLResultCode.h>

#include <utility>

DLResultCode::DLResultCode() : code(0), subCode(0) {}

DLResultCode::DLResultCode(int32_t code, int64_t subCode) : code(code), subCode(subCode) {}

DLResultCode::DLResultCode(const DLResultCode& other) = default;

DLResultCode::DLResultCode(DLResultCode&& other) noexcept
    : code(other.code), subCode(other.subCode), details(std::move(other.details)) {}

DLResultCode& DLResultCode::operator=(const DLResultCode& other) = default;

DLResultCode& DLResultCode::operator=(DLResultCode&& other) noexcept {
  code = other.code;
  subCode = other.subCode;
  details = std::move(other.details);
  return *this;
}

DLResultCode::~DLResultCode() = default;

void DLResultCode::SetCode(int32_t newCode, int64_t newSubCode) {
  code = newCode;
  subCode = newSubCode;
}
