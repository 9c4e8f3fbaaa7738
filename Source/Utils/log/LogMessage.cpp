#include "Utils/log/LogMessage.h"

#include <cstring>

namespace downloader {
namespace log {
namespace {

constexpr char kOperator[] = "operator";
constexpr size_t kOperatorLength = sizeof(kOperator) - 1;

bool StartsOperatorToken(const char* text, size_t at) {
  if (std::strncmp(text + at, kOperator, kOperatorLength) != 0) return false;
  return at == 0 || text[at - 1] == ':' || text[at - 1] == ' ';
}

// Skips "operator" and its symbol ("()", "<<", "==", " new") so that their
// brackets are not taken for the parameter list or a template argument list.
size_t SkipOperatorToken(const char* text, size_t at) {
  at += kOperatorLength;
  if (text[at] == '(' && text[at + 1] == ')') return at + 2;
  while (text[at] != '\0' && text[at] != '(') ++at;
  return at;
}

// clang spells an anonymous namespace "(anonymous namespace)", gcc
// "{anonymous}"; the brackets and the space would end the name early.
constexpr char kClangAnonymous[] = "(anonymous namespace)";
constexpr size_t kClangAnonymousLength = sizeof(kClangAnonymous) - 1;
constexpr char kAnonymous[] = "{anonymous}";

}  // namespace

std::string QualifiedFunctionName(const char* prettyFunction) {
  std::string name = QualifiedFunctionNameAsSpelled(prettyFunction);
  for (size_t at = name.find(kClangAnonymous); at != std::string::npos; at = name.find(kClangAnonymous)) {
    name.replace(at, kClangAnonymousLength, kAnonymous);
  }
  return name;
}

std::string QualifiedFunctionNameAsSpelled(const char* prettyFunction) {
  size_t nameStart = 0;
  int templateDepth = 0;
  size_t at = 0;
  while (prettyFunction[at] != '\0') {
    if (StartsOperatorToken(prettyFunction, at)) {
      at = SkipOperatorToken(prettyFunction, at);
      continue;
    }
    if (std::strncmp(prettyFunction + at, kClangAnonymous, kClangAnonymousLength) == 0) {
      at += kClangAnonymousLength;
      continue;
    }
    char c = prettyFunction[at];
    if (c == '<') {
      ++templateDepth;
    } else if (c == '>' && templateDepth > 0) {
      --templateDepth;
    } else if (templateDepth == 0 && c == ' ') {
      nameStart = at + 1;
    } else if (templateDepth == 0 && c == '(') {
      break;
    }
    ++at;
  }
  if (at <= nameStart) return prettyFunction;
  return std::string(prettyFunction + nameStart, at - nameStart);
}

const char* BaseFileName(const char* path) {
  const char* base = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/' || *p == '\\') base = p + 1;
  }
  return base;
}

LogMessage::LogMessage(Level level, const char* file, const char* prettyFunction, int line)
    : level_(level) {
  stream_ << '[' << BaseFileName(file) << "::" << QualifiedFunctionName(prettyFunction) << ':'
          << line << "] ";
}

LogMessage::~LogMessage() {
  stream_ << '\n';
  Logger::Emit(level_, stream_.str());
}

}  // namespace log
}  // namespace downloader
