#include "support/OriginUrl.h"

#include <cstdlib>
#include <fstream>

namespace dltest {
namespace {

std::string Trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  return text;
}

}  // namespace

std::string OriginUrlFromEnvironment() {
  const char* url = std::getenv("DLORIGIN_URL");
  if (url != nullptr && *url != '\0') return Trimmed(url);
  const char* file = std::getenv("DLORIGIN_URL_FILE");
  if (file == nullptr) return std::string();
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return Trimmed(line);
}

}  // namespace dltest
