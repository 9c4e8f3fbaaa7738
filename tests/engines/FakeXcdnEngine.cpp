#include "engines/FakeXcdnEngine.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <downloader/Utils/Logging.h>

#include "Stream/XcdnBeamAdapter.h"

namespace {

constexpr int kUnknownHandle = -2;
constexpr uint32_t kUnknownProperty = 1;
constexpr int kQuillInfoLevel = 2;

struct Source {
  std::string path;
  int64_t position = 0;
  int64_t size = 0;
};

// Allocated once and never destroyed, like the engine it stands in for.
struct Engine {
  std::mutex mutex;
  // Guarded by mutex.
  std::string initConfig;
  int initCount = 0;
  uint32_t lastFlags = 0;
  int nextHandle = 1;
  std::map<intptr_t, Source> sources;
  XcdnEngineBeamCallback beam = nullptr;

  static Engine& Instance() {
    static Engine* engine = new Engine();
    return *engine;
  }
};

int64_t FileSize(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  return file ? static_cast<int64_t>(file.tellg()) : -1;
}

std::string PropertyText(Engine& engine, const std::string& name, bool* known) {
  *known = true;
  if (name == "init-config") return engine.initConfig;
  if (name == "init-count") return std::to_string(engine.initCount);
  if (name == "last-flags") return std::to_string(engine.lastFlags);
  *known = false;
  return std::string();
}

}  // namespace

extern "C" {

uint32_t XCdnEngineInit(const char* config, const char* /*extra*/) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  engine.initConfig = config == nullptr ? "" : config;
  ++engine.initCount;
  return 0;
}

uint32_t XCdnEngineStart(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, int /*last*/) {
  return static_cast<uint32_t>(a + b + c + d);
}

int XCdnEngineStop(uint32_t how) { return static_cast<int>(how); }

int XCdnCreateSource(const char* path) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  int handle = engine.nextHandle++;
  engine.sources[handle].path = path == nullptr ? "" : path;
  return handle;
}

int XCdnOpenSource2(intptr_t handle, const char* /*resource*/, uint32_t flags, int64_t* opened) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  auto found = engine.sources.find(handle);
  if (found == engine.sources.end()) return kUnknownHandle;
  engine.lastFlags = flags;
  found->second.size = FileSize(found->second.path);
  if (opened != nullptr) *opened = found->second.size;
  return found->second.size < 0 ? kUnknownHandle : 0;
}

int64_t XCdnContentLength(intptr_t handle, uint32_t /*which*/) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  auto found = engine.sources.find(handle);
  return found == engine.sources.end() ? kUnknownHandle : found->second.size;
}

int XCdnReadSource(intptr_t handle, void* buffer, int64_t* bytesRead, int64_t size, uint32_t /*flags*/) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  auto found = engine.sources.find(handle);
  if (found == engine.sources.end()) return kUnknownHandle;
  Source& source = found->second;
  std::ifstream file(source.path, std::ios::binary);
  file.seekg(source.position);
  file.read(static_cast<char*>(buffer), std::max<int64_t>(0, size));
  int64_t count = static_cast<int64_t>(file.gcount());
  source.position += count;
  if (bytesRead != nullptr) *bytesRead = count;
  return 0;
}

int XCdnStopSource(intptr_t handle) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  return engine.sources.erase(handle) == 1 ? 0 : kUnknownHandle;
}

uint32_t XCdnGetProp(uintptr_t /*handle*/, void* property, uintptr_t buffer, uintptr_t size) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  bool known = false;
  std::string answer = PropertyText(engine, property == nullptr ? "" : static_cast<const char*>(property), &known);
  if (!known) return kUnknownProperty;
  char* out = reinterpret_cast<char*>(buffer);
  if (out != nullptr && size > 0) {
    size_t length = std::min<size_t>(answer.size(), size - 1);
    std::memcpy(out, answer.data(), length);
    out[length] = '\0';
  }
  return 0;
}

uint32_t XCdnSetProp2(uint32_t propertyId, uintptr_t first, uintptr_t second) {
  if (propertyId != kFakeXcdnEmitBeam) return kUnknownProperty;
  XcdnEngineBeamCallback beam;
  {
    Engine& engine = Engine::Instance();
    std::lock_guard<std::mutex> lock(engine.mutex);
    beam = engine.beam;
  }
  if (beam == nullptr) return 0;
  const char* measures = reinterpret_cast<const char*>(first);
  const char* dimensions = reinterpret_cast<const char*>(second);
  std::thread sender([beam, measures, dimensions] { beam("xcdn", "fake_point", measures, dimensions); });
  sender.join();
  return 0;
}

void XCdnSetQuillCallback(dl_quill_callback callback) {
  if (callback != nullptr) callback(kQuillInfoLevel, "fake xcdn quill attached");
}

void XCdnSetBeamCallback(XcdnEngineBeamCallback callback) {
  Engine& engine = Engine::Instance();
  std::lock_guard<std::mutex> lock(engine.mutex);
  engine.beam = callback;
}

}  // extern "C"
