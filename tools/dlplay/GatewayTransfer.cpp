#include "GatewayTransfer.h"

#include <algorithm>

namespace dlplay {

GatewayTransfer::GatewayTransfer(std::shared_ptr<GatewaySession> session, const std::string& url, EndCallback onEnd)
    : session_(std::move(session)), url_(url), onEnd_(std::move(onEnd)), began_(std::chrono::steady_clock::now()) {
  report_.url = url_;
  stream_ = session_->Acquire();
}

GatewayTransfer::~GatewayTransfer() {
  Describe();
  stream_->Close();
  session_->Release(stream_);
  if (complete_ && report_.code == 0) session_->Delivered(url_);
  report_.ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - began_)
                   .count();
  if (onEnd_) onEnd_(status_, contentRange_, report_);
}

bool GatewayTransfer::Open(const std::map<std::string, std::string>& params) {
  downloader::URIBuilder builder = downloader::URIBuilder::New();
  builder.params = params;
  DLResultCode opened = stream_->Open(builder.SetUrl(url_).Build());
  if (opened.code == kDLSuccess) return true;
  report_.code = kDLFailure;
  report_.subCode = opened.subCode;
  return false;
}

std::string GatewayTransfer::EffectiveUrl() const {
  std::string effective = stream_->GetInfo("effective_url");
  return effective.empty() ? url_ : effective;
}

bool GatewayTransfer::Seek(int64_t offset) {
  DLResultCode sought = stream_->Seek(offset);
  if (sought.code == kDLSuccess) return true;
  report_.code = kDLFailure;
  report_.subCode = sought.subCode;
  return false;
}

bool GatewayTransfer::Peek() { return Fill(kPieceSize) != PumpResult::kFailed; }

bool GatewayTransfer::ReadAll(std::string* body, size_t limit) {
  body->assign(pending_.begin(), pending_.end());
  pending_.clear();
  for (;;) {
    PumpResult read = Fill(kPieceSize);
    if (read != PumpResult::kMore) return read == PumpResult::kEnd;
    body->append(pending_.begin(), pending_.end());
    pending_.clear();
    if (body->size() > limit) return false;
  }
}

GatewayTransfer::PumpResult GatewayTransfer::Pump(const Writer& write, uint64_t maxBytes) {
  if (pending_.empty()) {
    PumpResult read = Fill(std::min<uint64_t>(maxBytes, kPieceSize));
    if (read != PumpResult::kMore) return read;
  }
  size_t length = static_cast<size_t>(std::min<uint64_t>(pending_.size(), maxBytes));
  // A player that went away ends the stream now, not after the resource.
  if (!write(pending_.data(), length)) return PumpResult::kFailed;
  report_.bytes += length;
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(length));
  return PumpResult::kMore;
}

GatewayTransfer::PumpResult GatewayTransfer::Fill(uint64_t maxBytes) {
  pending_.resize(static_cast<size_t>(std::max<uint64_t>(maxBytes, 1)));
  for (;;) {
    DLReadResult result = stream_->Read(pending_.data(), pending_.size());
    if (result.code == kDLSuccess && result.bytes == 0) continue;
    if (result.code == kDLSuccess) {
      pending_.resize(static_cast<size_t>(result.bytes));
      return PumpResult::kMore;
    }
    pending_.clear();
    if (result.code == kDLEndOfData) return PumpResult::kEnd;
    report_.code = kDLFailure;
    report_.subCode = result.subCode;
    return PumpResult::kFailed;
  }
}

void GatewayTransfer::Describe() {
  report_.levels = ParseLevelTrail(stream_->GetInfo("level_attempts"));
  std::vector<int> served = ParseLevelTrail(stream_->GetInfo("level_tracker"));
  report_.level = served.empty() ? -1 : served.back();
  report_.downgrades = served.empty() ? 0 : static_cast<int>(served.size()) - 1;
  report_.executor = stream_->GetInfo("executor");
  report_.cacheHit = report_.code == 0 && report_.level == kDLLevelCache;
}

}  // namespace dlplay
