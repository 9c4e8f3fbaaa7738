#include <gtest/gtest.h>

#include "Utils/log/LogMessage.h"
#include "support/LogCapture.h"

namespace downloader {
namespace logtest {

struct Widget {
  int LogFromMember() {
    DL_LOGI << "member says " << 42;
    return __LINE__ - 1;
  }
};

}  // namespace logtest

namespace {

using log::QualifiedFunctionName;

TEST(LoggerTest, PrefixCarriesFileQualifiedFunctionAndLine) {
  dltest::LogCapture capture;
  int line = logtest::Widget().LogFromMember();
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0], "[LoggerTest.cpp::downloader::logtest::Widget::LogFromMember:" +
                                    std::to_string(line) + "] member says 42\n");
}

TEST(LoggerTest, QualifiedNameDropsReturnTypeParametersAndQualifiers) {
  EXPECT_EQ(QualifiedFunctionName(
                "downloader::DLReadResult downloader::BufferQueue::ReadData(void*, uint64_t)"),
            "downloader::BufferQueue::ReadData");
  EXPECT_EQ(QualifiedFunctionName("static std::map<std::basic_string<char>, int> downloader::A<int, 2>::Make("
                                  "const std::pair<int, int>&) [with T = int]"),
            "downloader::A<int, 2>::Make");
  EXPECT_EQ(QualifiedFunctionName("downloader::Looper::Start()::<lambda()>"), "downloader::Looper::Start");
  EXPECT_EQ(QualifiedFunctionName("bool downloader::Ring::operator()(int) const"),
            "downloader::Ring::operator()");
  EXPECT_EQ(QualifiedFunctionName("bool downloader::operator<(const URI&, const URI&)"),
            "downloader::operator<");
  EXPECT_EQ(QualifiedFunctionName("void downloader::(anonymous namespace)::Helper(int)"),
            "downloader::{anonymous}::Helper");
}

int g_evaluations = 0;
int CountEvaluation() { return ++g_evaluations; }

TEST(LoggerTest, DisabledLevelEvaluatesNothing) {
  {
    dltest::LogCapture capture(DL_LOG_WARN);
    DL_LOGI << CountEvaluation();
    DL_LOGW << CountEvaluation();
    EXPECT_EQ(capture.Lines().size(), 1u);
  }
  EXPECT_EQ(g_evaluations, 1);
  // No callback registered: nothing is formatted at any level.
  DL_LOGE << CountEvaluation();
  EXPECT_EQ(g_evaluations, 1);
}

TEST(LoggerTest, MacroIsSafeInsideIfElse) {
  dltest::LogCapture capture;
  bool taken = false;
  if (capture.Lines().empty())
    DL_LOGI << "then";
  else
    taken = true;
  EXPECT_FALSE(taken);
  EXPECT_TRUE(capture.Contains("] then"));
}

}  // namespace
}  // namespace downloader
