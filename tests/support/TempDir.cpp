#include "support/TempDir.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <system_error>

namespace dltest {
namespace {
std::atomic<unsigned> g_counter{0};
}  // namespace

TempDir::TempDir() {
  namespace fs = std::filesystem;
  auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  fs::path dir = fs::temp_directory_path() /
                 ("dltest-" + std::to_string(stamp) + "-" + std::to_string(g_counter++));
  fs::create_directories(dir);
  path_ = dir.generic_u8string();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::u8path(path_), ignored);
}

std::string TempDir::Join(const std::string& name) const { return path_ + "/" + name; }

}  // namespace dltest
