#include <downloader/Pipe/PulseDataDef.h>

namespace downloader {

const char kPulseBufferDurationKey[] = "buffer_duration";
const char kPulseBitRateKey[] = "bit_rate";

}  // namespace downloader
