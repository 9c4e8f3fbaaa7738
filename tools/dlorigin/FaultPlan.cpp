#include "FaultPlan.h"

#include <cstdlib>

namespace dlorigin {

int64_t QueryInt(const httplib::Request& request, const char* name, int64_t fallback) {
  if (!request.has_param(name)) return fallback;
  const std::string value = request.get_param_value(name);
  char* end = nullptr;
  long long parsed = std::strtoll(value.c_str(), &end, 10);
  return (end == value.c_str() || *end != '\0') ? fallback : parsed;
}

FaultPlan FaultPlan::FromRequest(const httplib::Request& request) {
  FaultPlan plan;
  plan.status = static_cast<int>(QueryInt(request, "status", 0));
  plan.errorCode = request.get_param_value("xerr");
  plan.delayMs = QueryInt(request, "delay_ms", 0);
  plan.rate = QueryInt(request, "rate", 0);
  plan.dropAfter = QueryInt(request, "drop_after", kNever);
  plan.stallAfter = QueryInt(request, "stall_after", kNever);
  plan.ignoreRange = QueryInt(request, "ignore_range", 0) != 0;
  plan.rangeShift = QueryInt(request, "range_shift", 0);
  plan.redirects = static_cast<int>(QueryInt(request, "redirects", 0));
  plan.chunked = QueryInt(request, "chunked", 0) != 0;
  plan.headerPad = QueryInt(request, "header_pad", 0);
  plan.headerLine = QueryInt(request, "header_line", 0);
  plan.tag = request.get_param_value("tag");
  return plan;
}

}  // namespace dlorigin
