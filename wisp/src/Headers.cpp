#include <wisp/http/Headers.h>

#include <algorithm>
#include <cctype>

namespace wisp {
namespace http {
namespace {

bool SameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

bool HasLineBreak(const std::string& text) {
  return text.find_first_of("\r\n") != std::string::npos;
}

}  // namespace

bool Headers::Add(const std::string& name, const std::string& value) {
  if (name.empty() || HasLineBreak(name) || HasLineBreak(value) ||
      name.find(':') != std::string::npos) {
    return false;
  }
  fields_.emplace_back(name, value);
  return true;
}

bool Headers::Set(const std::string& name, const std::string& value) {
  Headers probe;
  if (!probe.Add(name, value)) return false;
  Remove(name);
  fields_.emplace_back(name, value);
  return true;
}

void Headers::Remove(const std::string& name) {
  fields_.erase(std::remove_if(fields_.begin(), fields_.end(),
                               [&](const Field& field) { return SameName(field.first, name); }),
                fields_.end());
}

bool Headers::Has(const std::string& name) const {
  return std::any_of(fields_.begin(), fields_.end(),
                     [&](const Field& field) { return SameName(field.first, name); });
}

std::string Headers::Get(const std::string& name) const {
  for (const Field& field : fields_) {
    if (SameName(field.first, name)) return field.second;
  }
  return std::string();
}

std::string Headers::ToString() const {
  std::string text;
  for (const Field& field : fields_) {
    text += field.first;
    text += ": ";
    text += field.second;
    text += "\r\n";
  }
  return text;
}

}  // namespace http
}  // namespace wisp
