#include "Stream/XcdnBeamAdapter.h"

#include <atomic>
#include <regex>

#include <nlohmann/json.hpp>

#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

std::atomic<dl_beam_callback> g_hostCallback{nullptr};
std::atomic<dl_beam_json_callback_func> g_hostJsonCallback{nullptr};

std::string TextOf(const char* text) { return text == nullptr ? std::string() : std::string(text); }

}  // namespace

std::map<std::string, std::string> XcdnBeamAdapter::ParsePairs(const std::string& list) {
  static const std::regex kPairPattern("(.+?):(.+?);");
  std::map<std::string, std::string> pairs;
  for (auto match = std::sregex_iterator(list.begin(), list.end(), kPairPattern); match != std::sregex_iterator();
       ++match) {
    pairs.emplace((*match)[1].str(), (*match)[2].str());
  }
  return pairs;
}

void XcdnBeamAdapter::SetHostCallback(dl_beam_callback callback) {
  g_hostCallback.store(callback, std::memory_order_release);
}

void XcdnBeamAdapter::SetHostJsonCallback(dl_beam_json_callback_func callback) {
  g_hostJsonCallback.store(callback, std::memory_order_release);
}

void XcdnBeamAdapter::XcdnBeamCallback(const char* module, const char* monitorPoint, const char* measures,
                                       const char* dimensions) {
  dl_beam_callback host = g_hostCallback.load(std::memory_order_acquire);
  if (host == nullptr) return;
  std::string measureList = TextOf(measures);
  std::string dimensionList = TextOf(dimensions);
  if (!measureList.empty()) {
    DL_LOGD << "handle xcdn beam measure " << measureList;
  }
  if (!dimensionList.empty()) {
    DL_LOGD << "handle xcdn beam dimen " << dimensionList;
  }
  host(TextOf(module), TextOf(monitorPoint), ParsePairs(dimensionList), ParsePairs(measureList));
}

void XcdnBeamAdapter::XcdnJsonBeamCallback(const char* module, const char* monitorPoint, const char* measures,
                                           const char* dimensions) {
  dl_beam_json_callback_func host = g_hostJsonCallback.load(std::memory_order_acquire);
  if (host == nullptr) return;
  nlohmann::ordered_json event;
  event["type"] = "send_vpm";
  event["module"] = TextOf(module);
  event["monitorPoint"] = TextOf(monitorPoint);
  event["dimensionValues"] = nlohmann::ordered_json::object();
  for (const auto& pair : ParsePairs(TextOf(dimensions))) event["dimensionValues"][pair.first] = pair.second;
  event["measureValues"] = nlohmann::ordered_json::object();
  for (const auto& pair : ParsePairs(TextOf(measures))) event["measureValues"][pair.first] = pair.second;
  // Engine text is not guaranteed UTF-8; replace what does not decode rather than throw.
  std::string text = event.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  host(text.c_str());
}

}  // namespace downloader
