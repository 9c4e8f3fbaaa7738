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

TEST(HttpErrorCodeTest, StatusRowsKeepTheirHistoricValues) {
  EXPECT_EQ(StatusCode(1), -808464712);
  EXPECT_EQ(StatusCode(404), -875574344);
  EXPECT_EQ(StatusCode(416), -909194312);
  EXPECT_EQ(StatusCode(501), -808465480);
  EXPECT_EQ(SubCodeTag(StatusCode(501)), "H400");
  EXPECT_EQ(StatusCode(502), -842020168);
  for (int32_t status : {400, 401, 410, 418, 500, 503, 504}) {
    EXPECT_EQ(StatusCode(status), -1482175816) << status;
    EXPECT_EQ(SubCodeTag(StatusCode(status)), "H5XX") << status;
  }
}

TEST(HttpErrorCodeTest, KindRows) {
  EXPECT_EQ(HttpErrorCode::FromError(Error()), 0);
  EXPECT_EQ(HttpErrorCode::FromError(MakeError(ErrorKind::kRangeNotHonoured, 200)), -1146244936);
  EXPECT_EQ(HttpErrorCode::FromError(MakeError(ErrorKind::kTimeout)), -1330922567);
  EXPECT_EQ(HttpErrorCode::kTimeout, -1330922567);
  for (ErrorKind kind : {ErrorKind::kInvalidRequest, ErrorKind::kDnsFailure, ErrorKind::kConnectFailure,
                         ErrorKind::kTlsFailure, ErrorKind::kTooManyRedirects, ErrorKind::kConnectionLost,
                         ErrorKind::kCancelled, ErrorKind::kInternal}) {
    EXPECT_EQ(HttpErrorCode::FromError(MakeError(kind, 404)), -1482175560) << static_cast<int>(kind);
  }
}

TEST(HttpErrorCodeTest, ForbiddenReadsTheCdnDetail) {
  EXPECT_EQ(StatusCode(403, "403000"), -858797128);
  EXPECT_EQ(SubCodeTag(StatusCode(403, "403000")), "H403");
  EXPECT_EQ(StatusCode(403, "403601"), -825243203);
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
