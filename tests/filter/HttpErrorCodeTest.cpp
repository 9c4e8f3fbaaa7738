#include <gtest/gtest.h>

#include <string>

#include <downloader/Filter/SubCode.h>

#include "Filter/HttpErrorCode.h"

namespace downloader {
namespace {

using wisp::http::Error;
using wisp::http::ErrorKind;

Error MakeError(ErrorKind kind, int32_t status = 0, const std::string& detail = "") {
  Error error;
  error.kind = kind;
  error.status = status;
  error.detail = detail;
  return error;
}

int64_t StatusCode(int32_t status, const std::string& detail = "") {
  return HttpErrorCode::FromError(MakeError(ErrorKind::kHttpStatus, status, detail));
}

// Hosts compare sub-codes as numbers; the origin suites check the tags.
TEST(HttpErrorCodeTest, StatusAndKindRowsKeepTheirHistoricValues) {
  EXPECT_EQ(StatusCode(1), -808464712);
  EXPECT_EQ(StatusCode(404), -875574344);
  EXPECT_EQ(StatusCode(400), -1482175816);
  EXPECT_EQ(HttpErrorCode::FromError(Error()), 0);
  EXPECT_EQ(HttpErrorCode::FromError(MakeError(ErrorKind::kTimeout)), HttpErrorCode::kTimeout);
  EXPECT_EQ(HttpErrorCode::FromError(MakeError(ErrorKind::kDnsFailure, 404)), -1482175560);
}

TEST(HttpErrorCodeTest, ForbiddenReadsTheCdnDetail) {
  EXPECT_EQ(StatusCode(403, "403612"), -842085955);
  for (int detail = 1; detail <= 12; ++detail) {
    char expected[5];
    std::snprintf(expected, sizeof(expected), "C6%02d", detail);
    EXPECT_EQ(SubCodeTag(StatusCode(403, std::to_string(403600 + detail))), expected);
  }
  for (const char* other : {"", "abc", "403700", "403600", "403613", "403", "99999999999999999999"}) {
    EXPECT_EQ(SubCodeTag(StatusCode(403, other)), "H403") << other;
  }
}

}  // namespace
}  // namespace downloader
