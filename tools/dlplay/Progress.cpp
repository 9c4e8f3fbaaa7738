#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace dlplay {
namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr int kBarWidth = 24;
constexpr double kBytesPerMiB = 1024.0 * 1024.0;

}  // namespace

Progress::Progress(bool quiet)
    : quiet_(quiet), terminal_(isatty(STDERR_FILENO) == 1), started_(std::chrono::steady_clock::now()) {}

void Progress::BeginRequest(int index, int count, const std::string& name) {
  index_ = index;
  count_ = count;
  name_ = name;
  side_ = false;
}

void Progress::BeginSideRequest(const std::string& name) {
  name_ = name;
  side_ = true;
}

void Progress::Update(uint64_t requestBytes, int level) { Draw(requestBytes, level, false); }

bool Progress::RedrawDue() const {
  return !quiet_ && terminal_ && std::chrono::steady_clock::now() - lastDraw_ >= kRedrawInterval;
}

void Progress::Draw(uint64_t requestBytes, int level, bool force) {
  if (!force && !RedrawDue()) return;
  if (quiet_ || !terminal_) return;
  auto now = std::chrono::steady_clock::now();
  lastDraw_ = now;
  double seconds = std::chrono::duration<double>(now - started_).count();
  double mib = static_cast<double>(totalBytes_ + requestBytes) / kBytesPerMiB;
  int filled = count_ > 0 ? kBarWidth * std::min(done_, count_) / count_ : 0;
  std::string bar(static_cast<size_t>(filled), '#');
  bar.resize(kBarWidth, '.');
  std::fprintf(stderr, "\r[%s] %d/%d  %8.1f MiB  %7.1f MiB/s  level %d  ", bar.c_str(), index_, count_, mib,
               seconds > 0 ? mib / seconds : 0.0, level);
  std::fflush(stderr);
}

void Progress::EndRequest(uint64_t requestBytes, int level, int code, const std::string& subTag) {
  totalBytes_ += requestBytes;
  if (!side_) done_ = index_;
  if (quiet_) return;
  if (terminal_) {
    Draw(0, level, true);
    return;
  }
  std::fprintf(stderr, "%d/%d %s: %llu bytes, level %d%s%s\n", index_, count_, name_.c_str(),
               static_cast<unsigned long long>(requestBytes), level, code == 0 ? "" : ", failed ",
               code == 0 ? "" : subTag.c_str());
}

void Progress::PrintLine(const std::string& line) {
  if (!quiet_ && terminal_) std::fputs("\r\033[K", stderr);
  std::fprintf(stderr, "%s\n", line.c_str());
}

void Progress::Finish() {
  if (!quiet_ && terminal_) std::fputs("\n", stderr);
}

}  // namespace dlplay
