#include <downloader/Filter/IDownloadExecutor.h>

#include <utility>

namespace downloader {

IDownloadExecutor::IDownloadExecutor() = default;

IDownloadExecutor::~IDownloadExecutor() = default;

void IDownloadExecutor::ReservedSlot8() {}

void IDownloadExecutor::ReservedSlot9() {}

int32_t IDownloadExecutor::GetExecutorType() { return 0; }

int32_t IDownloadExecutor::ReservedSlot16() { return 0; }

void IDownloadExecutor::SetStatsSink(std::shared_ptr<StreamStats> stats) { stats_ = std::move(stats); }

void IDownloadExecutor::ReservedSlot18() {}

void IDownloadExecutor::ReservedSlot19() {}

}  // namespace downloader
