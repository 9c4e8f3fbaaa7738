// A fresh directory per test, removed with everything in it afterwards.
#ifndef TESTS_SUPPORT_TEMPDIR_H_
#define TESTS_SUPPORT_TEMPDIR_H_

#include <string>

namespace dltest {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // UTF-8, no trailing separator.
  const std::string& path() const { return path_; }
  std::string Join(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace dltest

#endif  // TESTS_SUPPORT_TEMPDIR_H_
