#include <gtest/gtest.h>

#include <vector>

#include <downloader/Filter/SubCode.h>

#include "ExitStatus.h"
#include "IniConfig.h"
#include "Options.h"
#include "PlayReport.h"

namespace dlplay {
namespace {

ParseOutcome Parse(std::vector<const char*> args, Options* options, std::string* error) {
  args.insert(args.begin(), "dlplay");
  return ParseOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(NetworkOptionsTest, CurlStyleOptionsBecomeTheLibrarySettings) {
  Options options;
  std::string error;
  ASSERT_EQ(Parse({"-H", "X-Token:  t1 ", "--header", "Referer: http://r/", "-A", "player/1", "-x", "proxy:3128",
                   "--cacert", "/ca.pem", "-k", "-s", "-v", "--range", "0-9", "https://h/a.mp4"},
                  &options, &error),
            ParseOutcome::kRun)
      << error;
  EXPECT_EQ(options.url, "https://h/a.mp4");
  EXPECT_EQ(options.rangeEnd, 9) << "the other options still parse around them";
  EXPECT_TRUE(options.network.silent);
  EXPECT_TRUE(options.network.verbose);
  EXPECT_EQ(RequestHeaderText(options.network), "X-Token:t1&Referer:http://r/");

  IniConfig config;
  ApplyNetworkSettings(options.network, &config);
  EXPECT_EQ(config.GetValue("http_downloader_kit", "proxy", ""), "proxy:3128");
  EXPECT_EQ(config.GetValue("http_downloader_kit", "ca_file", ""), "/ca.pem");
  EXPECT_EQ(config.GetValue("http_downloader_kit", "user_agent", ""), "player/1");
  EXPECT_EQ(config.GetValue("http_downloader_kit", "tls_insecure", ""), "true");

  IniConfig untouched;
  ApplyNetworkSettings(NetworkOptions(), &untouched);
  EXPECT_EQ(untouched.GetValue("http_downloader_kit", "tls_insecure", "unset"), "unset")
      << "certificates stay checked unless -k is given";
}

TEST(NetworkOptionsTest, HeadersThatCouldAddOrMangleFieldsAreRefused) {
  Options options;
  std::string error;
  for (std::vector<const char*> bad : std::vector<std::vector<const char*>>{
           {"-H", "NoColon"}, {"-H", ": v"}, {"-H", "X-Empty:"}, {"-H", "X-A: 1\r\nX-B: 2"}, {"-H", "X-A: 1\nX-B: 2"},
           {"-H", "Cookie: a=1&b=2"}, {"-A", "ua\r\nX-B: 2"}, {"-x"}, {"--cacert"}}) {
    EXPECT_EQ(Parse(bad, &options, &error), ParseOutcome::kError) << bad[0] << " " << (bad.size() > 1 ? bad[1] : "");
    EXPECT_FALSE(error.empty());
  }
}

TEST(NetworkOptionsTest, ExitStatusByClassOfTheFirstFailure) {
  EXPECT_EQ(ExitStatusFor("dns failure", 0), kExitDns);
  EXPECT_EQ(ExitStatusFor("connect failure", 0), kExitConnect);
  EXPECT_EQ(ExitStatusFor("tls failure", 0), kExitTls);
  EXPECT_EQ(ExitStatusFor("http status", 0), kExitHttpStatus);
  EXPECT_EQ(ExitStatusFor("timeout", 0), kExitTimeout);
  EXPECT_EQ(ExitStatusFor("", downloader::FourCharSubCode('G', 'D', 'T', 'O')), kExitTimeout)
      << "a read time-out of the library has no network kind";
  EXPECT_EQ(ExitStatusFor("invalid request", 0), kExitBadRequest);
  EXPECT_EQ(ExitStatusFor("connection lost", 0), kExitFailure);

  PlaySummary summary;
  RequestReport ok;
  summary.Add(ok);
  EXPECT_EQ(summary.ExitStatus(), kExitSuccess);
  RequestReport dns;
  dns.code = 1;
  dns.errorKind = "dns failure";
  RequestReport status = dns;
  status.errorKind = "http status";
  summary.Add(dns);
  summary.Add(status);
  EXPECT_EQ(summary.ExitStatus(), kExitDns);
}

TEST(NetworkOptionsTest, FailureLineNamesTheResourceTheCodeAndTheReason) {
  RequestReport report;
  report.url = "http://cdn.invalid/v/seg3.ts?token=1";
  report.code = 1;
  report.subCode = downloader::FourCharSubCode('H', '4', 'X', 'X');
  report.errorMessage = "could not resolve host 'cdn.invalid'";
  EXPECT_EQ(report.FailureLine(), "seg3.ts: H4XX: could not resolve host 'cdn.invalid'");
  report.errorMessage.clear();
  EXPECT_EQ(report.FailureLine(), "seg3.ts: H4XX");
}

}  // namespace
}  // namespace dlplay
