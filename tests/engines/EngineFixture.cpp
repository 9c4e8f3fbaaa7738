#include "engines/EngineFixture.h"

#include <fstream>
#include <map>
#include <mutex>

#include "Platform/ModuleLoader.h"
#include "Stream/PcdnReadEvent.h"
#include "support/WaitFor.h"

namespace dltest {
namespace {

std::mutex g_mutex;
std::map<int64_t, ReadRecord> g_records;  // guarded by g_mutex

template <typename Condition>
bool WaitForRecord(int64_t id, Condition condition) {
  return WaitFor([&] {
    std::lock_guard<std::mutex> lock(g_mutex);
    return condition(g_records[id]);
  });
}

}  // namespace

std::string FakePcdnEnginePath() { return DL_FAKE_PCDN_PATH; }

std::string FakePcdnEngineWithoutSetMetaPath() { return DL_FAKE_PCDN_WITHOUT_SETMETA_PATH; }

bool MapModule(const std::string& path) { return downloader::platform::LoadModule(path) != nullptr; }

bool IsModuleMapped(const char* name) { return downloader::platform::FindLoadedModule(name) != nullptr; }

std::string WritePatternFile(const std::string& path, size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

int CollectRead(int64_t id, int64_t offset, int kind, const char* data, int64_t length, int64_t total, int code,
                const char* /*info*/) {
  std::lock_guard<std::mutex> lock(g_mutex);
  ReadRecord& record = g_records[id];
  record.total = total;
  switch (kind) {
    case downloader::kPcdnReadData:
      if (record.firstOffset < 0) record.firstOffset = offset;
      if (offset != record.firstOffset + static_cast<int64_t>(record.bytes.size())) record.inOrder = false;
      record.bytes.append(data, static_cast<size_t>(length));
      break;
    case downloader::kPcdnReadDone:
      record.done = true;
      record.endOffset = offset;
      break;
    default:
      record.failed = true;
      record.code = code;
      record.endOffset = offset;
      break;
  }
  return 0;
}

ReadRecord RecordOf(int64_t id) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_records[id];
}

bool WaitForEnd(int64_t id) {
  return WaitForRecord(id, [](const ReadRecord& record) { return record.done || record.failed; });
}

bool WaitForBytes(int64_t id, size_t bytes) {
  return WaitForRecord(id, [bytes](const ReadRecord& record) { return record.bytes.size() >= bytes; });
}

}  // namespace dltest
