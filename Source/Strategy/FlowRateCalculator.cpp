#include <downloader/Strategy/FlowRateCalculator.h>

#include <utility>

namespace downloader {

FlowRateControl::~FlowRateControl() = default;

FlowRateCalculator::FlowRateCalculator(std::shared_ptr<FlowRateControl> control)
    : control_(std::move(control)) {}

FlowRateCalculator::~FlowRateCalculator() = default;

bool FlowRateCalculator::IsDrain() { return answer_ != 0; }

void FlowRateCalculator::OnRead(uint64_t sample, int32_t value, uint64_t /*extra*/) {
  if (control_) answer_ = control_->OnReadHappened(value, sample);
}

void FlowRateCalculator::Update() {
  if (control_) answer_ = control_->CurrentAnswer();
}

void FlowRateCalculator::SetBuffer(int32_t /*bufferMs*/) {}

void FlowRateCalculator::Reset() {}

std::string FlowRateCalculator::Describe() { return control_ ? control_->Describe() : std::string(); }

}  // namespace downloader
