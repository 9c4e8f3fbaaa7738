// dlplay's demo: a synthetic HLS rendition (30 segments of 1 MiB) served by an
// origin inside this process, played over HTTP with segment writing on, then
// played again from the disk cache; both summaries side by side, and every
// segment's bytes checked against the origin's.
#ifndef TOOLS_DLPLAY_DEMO_H_
#define TOOLS_DLPLAY_DEMO_H_

#include <memory>
#include <ostream>

#include "IniConfig.h"
#include "Options.h"

namespace dlplay {

// The process's exit status: 0 when both plays read every byte right and the
// second was served from the cache.
int RunDemo(const Options& options, const std::shared_ptr<IniConfig>& config, std::ostream* jsonOut);

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_DEMO_H_
