#include "Storage/SegmentStorage.h"

#include <algorithm>
#include <cstring>

#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Storage/ByteOrder.h"
#include "Storage/Persistence/File.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

constexpr uint8_t kMagic[] = {'d', 'l', 's', 's'};
static_assert(sizeof(kMagic) == SegmentStorage::kVersionOffset, "the magic fills the first 4 bytes");

uint64_t PositiveOr(int32_t value, int32_t fallback) {
  return static_cast<uint64_t>(value > 0 ? value : fallback);
}

}  // namespace

constexpr uint64_t SegmentStorage::kHeaderSize;

SegmentStorage::SegmentStorage(std::string cacheFilePath, std::string tmpFilePath, Mode mode,
                               uint64_t desiredFileSize, int64_t jobId, platform::FileSystem* fileSystem)
    : cacheFilePath_(std::move(cacheFilePath)),
      tmpFilePath_(std::move(tmpFilePath)),
      mode_(mode),
      tag_("[diskcache][jobid" + std::to_string(jobId) + "_SegmentStorage]"),
      fileSystem_(fileSystem),
      mDesiredFileSize_(desiredFileSize) {}

SegmentStorage::~SegmentStorage() {
  if (file_) file_->close();
}

void SegmentStorage::initCache(const ConfigPtr& config) {
  wisp::MutexLock lock(&mutex_);
  const DownloaderSettings settings = DownloaderSettings::Read(config);
  flushThreshold_ = PositiveOr(settings.segmentFlushThreshold, kDefaultFlushThreshold);
  readChunkSize_ = PositiveOr(settings.segmentReadChunkSize, kDefaultReadChunkSize);
  cellCapacityMin_ = PositiveOr(settings.segmentCellCapacityMin, kDefaultCellCapacityMin);
  DL_LOGD << tag_ << "initCache,parse config,segmentFlushThreshold:" << flushThreshold_
          << ",readChunkSize:" << readChunkSize_ << ",cellCapacityMin:" << cellCapacityMin_
          << ",mode:" << (mode_ == Mode::kRead ? "READ" : "WRITE");
}

bool SegmentStorage::open() {
  wisp::MutexLock lock(&mutex_);
  if (mode_ == Mode::kWrite) {
    file_ = std::make_shared<File>(tmpFilePath_, fileSystem_);
    if (mDesiredFileSize_ == 0 || !file_->create() || !writeHeaderLocked()) {
      DL_LOGW << tag_ << "open,fail,tmp file:" << tmpFilePath_;
      file_.reset();
      return false;
    }
    cell_.reserve(std::max(flushThreshold_, cellCapacityMin_));
    return true;
  }
  for (const std::string& path : {cacheFilePath_, tmpFilePath_}) {
    file_ = std::make_shared<File>(path, fileSystem_);
    if (file_->openReadOnly()) return parseFileHeader();
  }
  DL_LOGD << tag_ << "open,no file:" << cacheFilePath_;
  file_.reset();
  return false;
}

bool SegmentStorage::writeHeaderLocked() {
  uint8_t header[kHeaderSize];
  std::memcpy(header, kMagic, sizeof(kMagic));
  PutLittleEndian<uint16_t>(header + kVersionOffset, kVersion);
  PutLittleEndian<uint16_t>(header + kHeaderSizeOffset, static_cast<uint16_t>(kHeaderSize));
  PutLittleEndian<uint64_t>(header + kDesiredSizeOffset, mDesiredFileSize_);
  return file_->write(header, kHeaderSize, 0) == static_cast<int64_t>(kHeaderSize);
}

bool SegmentStorage::parseFileHeader() {
  uint8_t header[kHeaderSize];
  uint64_t fileLength = 0;
  bool intact = file_->read(header, kHeaderSize, 0) == static_cast<int64_t>(kHeaderSize) &&
                std::memcmp(header, kMagic, sizeof(kMagic)) == 0 &&
                GetLittleEndian<uint16_t>(header + kVersionOffset) == kVersion &&
                GetLittleEndian<uint16_t>(header + kHeaderSizeOffset) == kHeaderSize &&
                GetLittleEndian<uint64_t>(header + kDesiredSizeOffset) > 0 && file_->size(&fileLength);
  if (!intact) {
    DL_LOGW << tag_ << "parseFileHeader,data corrupted:" << file_->path();
    file_->close();
    file_.reset();
    return false;
  }
  mDesiredFileSize_ = GetLittleEndian<uint64_t>(header + kDesiredSizeOffset);
  flushedSize_ = std::min(fileLength - kHeaderSize, mDesiredFileSize_);
  DL_LOGD << tag_ << "parseFileHeader,desired:" << mDesiredFileSize_ << ",available:" << flushedSize_;
  return true;
}

int64_t SegmentStorage::write(uint64_t goff, const uint8_t* data, uint64_t len) {
  wisp::MutexLock lock(&mutex_);
  if (mode_ != Mode::kWrite || !file_ || completed_ || goff != mGoffWrite_ || len > mDesiredFileSize_ - goff) {
    DL_LOGD << tag_ << "write,refused,goff:" << goff << ",mGoffWrite_:" << mGoffWrite_ << ",len:" << len;
    return -1;
  }
  cell_.insert(cell_.end(), data, data + len);
  mGoffWrite_ += len;
  if (cell_.size() >= flushThreshold_ && !flushCellLocked()) return -1;
  return static_cast<int64_t>(len);
}

bool SegmentStorage::flushCellLocked() {
  if (cell_.empty()) return true;
  if (file_->write(cell_.data(), cell_.size(), kHeaderSize + flushedSize_) != static_cast<int64_t>(cell_.size())) {
    DL_LOGW << tag_ << "flush,fail,size:" << cell_.size();
    return false;
  }
  flushedSize_ += cell_.size();
  cell_.clear();
  return true;
}

int64_t SegmentStorage::readInner(uint8_t* buffer, uint64_t len, uint64_t goff) {
  if (goff < flushedSize_) {
    return file_->read(buffer, std::min(len, flushedSize_ - goff), kHeaderSize + goff);
  }
  uint64_t inCell = goff - flushedSize_;
  if (inCell >= cell_.size()) return 0;
  uint64_t copied = std::min<uint64_t>(len, cell_.size() - inCell);
  std::memcpy(buffer, cell_.data() + inCell, copied);
  return static_cast<int64_t>(copied);
}

uint64_t SegmentStorage::read(uint8_t* buffer, uint64_t len) {
  wisp::MutexLock lock(&mutex_);
  if (!file_) return 0;
  uint64_t delivered = 0;
  while (delivered < len) {
    int64_t got = readInner(buffer + delivered, std::min(len - delivered, readChunkSize_), mGoffRead_);
    if (got <= 0) break;
    delivered += static_cast<uint64_t>(got);
    mGoffRead_ += static_cast<uint64_t>(got);
  }
  return delivered;
}

bool SegmentStorage::seek(uint64_t goff) {
  wisp::MutexLock lock(&mutex_);
  if (!file_ || goff > mDesiredFileSize_) return false;
  mGoffRead_ = goff;
  return true;
}

bool SegmentStorage::complete() {
  wisp::MutexLock lock(&mutex_);
  if (mode_ != Mode::kWrite || !file_ || completed_) return false;
  if (!flushCellLocked()) return false;
  if (mGoffWrite_ != mDesiredFileSize_) {
    DL_LOGW << tag_ << "complete,fail,size:" << mGoffWrite_ << ",mDesiredFileSize_:" << mDesiredFileSize_;
    return false;
  }
  if (!file_->exists()) {
    DL_LOGW << tag_ << "complete,fail,tmpFile not exist:" << tmpFilePath_;
    return false;
  }
  File cacheFile(cacheFilePath_, fileSystem_);
  if (!cacheFile.make_dirs() || !file_->renameTo(cacheFilePath_)) {
    DL_LOGW << tag_ << "complete,renameTo,fail:" << cacheFilePath_;
    return false;
  }
  // The open handle follows the file to its new name.
  completed_ = true;
  DL_LOGI << tag_ << "complete,renameTo,success:" << cacheFilePath_;
  return true;
}

void SegmentStorage::cancel() {
  wisp::MutexLock lock(&mutex_);
  if (mode_ != Mode::kWrite || !file_ || completed_) return;
  file_->close();
  DL_LOGD << tag_ << "cancel,remove tmp file,path:" << tmpFilePath_;
  file_->remove();
  file_.reset();
  cell_.clear();
}

uint64_t SegmentStorage::desiredFileSize() {
  wisp::MutexLock lock(&mutex_);
  return mDesiredFileSize_;
}

uint64_t SegmentStorage::availableSize() {
  wisp::MutexLock lock(&mutex_);
  return mode_ == Mode::kWrite ? mGoffWrite_ : flushedSize_;
}

}  // namespace storage
}  // namespace downloader
