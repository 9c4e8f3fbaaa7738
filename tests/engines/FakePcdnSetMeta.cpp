// "PCDNSetMeta" lives apart so that the engine variant without it is the same
// engine less this file.
#include <sstream>

#include "engines/FakePcdnEngine.h"

extern "C" int PCDNSetMeta(int64_t id, int intValue, int64_t longValue, float floatValue, const char* text,
                           int flag) {
  fake_engine::CountCall("PCDNSetMeta");
  std::ostringstream line;
  line << id << ',' << intValue << ',' << longValue << ',' << floatValue << ',' << (text == nullptr ? "" : text)
       << ',' << flag;
  fake_engine::RecordMeta(line.str().c_str());
  return 0;
}
