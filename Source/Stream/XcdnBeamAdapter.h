// Turns the XCDN engine's analytics events into the host's beam callbacks.
// The engine hands four strings: module, monitor point, measure list and
// dimension list, each list written "key:value;key:value;". A list is split
// with the pattern "(.+?):(.+?);": every item must end with a semicolon, so
// a last item without one is dropped ("a:1;b:2" yields only a=1), and a key
// met twice keeps its first value.
//
// Thread rules: the adapters run on the engine's threads and only read the
// two host slots; the setters write them (atomic words) at start-up. An
// adapter whose host slot is empty returns at once.
#ifndef DOWNLOADER_STREAM_XCDNBEAMADAPTER_H_
#define DOWNLOADER_STREAM_XCDNBEAMADAPTER_H_

#include <map>
#include <string>

#include <downloader/Stream/XcdnInterfaceHelper.h>

extern "C" {
// The engine's side of an analytics event.
typedef void (*XcdnEngineBeamCallback)(const char* module, const char* monitorPoint, const char* measures,
                                       const char* dimensions);
}

namespace downloader {

class XcdnBeamAdapter {
 public:
  XcdnBeamAdapter() = delete;

  static std::map<std::string, std::string> ParsePairs(const std::string& list);

  static void SetHostCallback(dl_beam_callback callback);
  static void SetHostJsonCallback(dl_beam_json_callback_func callback);

  // Logs non-empty lists ("handle xcdn beam measure ", "handle xcdn beam
  // dimen ") and calls the host's map callback, dimensions first.
  static void XcdnBeamCallback(const char* module, const char* monitorPoint, const char* measures,
                               const char* dimensions);
  // Calls the host's JSON callback with {"type":"send_vpm","module",
  // "monitorPoint","dimensionValues","measureValues"} in that order.
  static void XcdnJsonBeamCallback(const char* module, const char* monitorPoint, const char* measures,
                                   const char* dimensions);
};

}  // namespace downloader

#endif  // DOWNLOADER_STREAM_XCDNBEAMADAPTER_H_
