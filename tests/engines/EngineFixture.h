// What the engine suites share: mapping the fake engines the way a host
// does, and collecting what a fake PCDN engine delivers through the read
// callback.
#ifndef TESTS_ENGINES_ENGINEFIXTURE_H_
#define TESTS_ENGINES_ENGINEFIXTURE_H_

#include <cstdint>
#include <string>

namespace dltest {

std::string FakePcdnEnginePath();
std::string FakePcdnEngineWithoutSetMetaPath();

// Maps the module at `path` into the process (the host's job); true on success.
bool MapModule(const std::string& path);
bool IsModuleMapped(const char* name);

// Writes `size` bytes of a known pattern to `path`, and returns them.
std::string WritePatternFile(const std::string& path, size_t size);

// Everything one engine download delivered through CollectRead.
struct ReadRecord {
  std::string bytes;
  bool done = false;
  bool failed = false;
  int code = 0;
  int64_t total = -1;
  int64_t endOffset = -1;
  bool inOrder = true;
  int64_t firstOffset = -1;
};

// The read callback to hand the engine; it records by download id.
int CollectRead(int64_t id, int64_t offset, int kind, const char* data, int64_t length, int64_t total, int code,
                const char* info);
ReadRecord RecordOf(int64_t id);
// Waits until the download's end notice arrived; false at the deadline.
bool WaitForEnd(int64_t id);
// Waits until at least `bytes` bytes arrived; false at the deadline.
bool WaitForBytes(int64_t id, size_t bytes);

}  // namespace dltest

#endif  // TESTS_ENGINES_ENGINEFIXTURE_H_
