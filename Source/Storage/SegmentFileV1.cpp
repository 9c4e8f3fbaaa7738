#include "Storage/SegmentFileV1.h"

#include <cstdio>
#include <sstream>

#include <wisp/Mutex.h>

#include "Storage/ByteOrder.h"
#include "Storage/Persistence/File.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

uint64_t CeilDiv(uint64_t value, uint64_t divisor) { return value / divisor + (value % divisor != 0 ? 1 : 0); }

uint8_t BitOf(uint64_t chunkIndex) { return static_cast<uint8_t>(0x80u >> (chunkIndex % 8)); }

// Leading set bits of one bitmap byte, most significant first.
uint64_t LeadingOnes(uint8_t value) {
  uint64_t count = 0;
  for (uint8_t bit = 0x80; bit != 0 && (value & bit) != 0; bit >>= 1) ++count;
  return count;
}

}  // namespace

constexpr uint64_t SegmentFileV1::kHeaderSize;
constexpr uint64_t SegmentFileV1::kChecksumSize;
constexpr uint64_t SegmentFileV1::kContentFileSizeLimit;
constexpr uint64_t SegmentFileV1::kDefaultChunkContentSize;

uint64_t SegmentFileV1::chunkCountFor(uint64_t contentFileSize, uint64_t chunkContentSize) {
  if (contentFileSize == 0 || chunkContentSize == 0) return 0;
  return CeilDiv(contentFileSize, chunkContentSize);
}

uint64_t SegmentFileV1::bitmapSizeFor(uint64_t contentFileSize, uint64_t chunkContentSize) {
  return CeilDiv(chunkCountFor(contentFileSize, chunkContentSize), 8);
}

SegmentFileV1::SegmentFileV1() = default;
SegmentFileV1::~SegmentFileV1() = default;

void SegmentFileV1::resetLocked(std::shared_ptr<File> file, int64_t jobId) {
  contentFileSize_ = 0;
  bitmapSize_ = 0;
  chunkContentSize_ = 0;
  chunkCount_ = 0;
  isValid_ = false;
  bitmap_.clear();
  file_ = std::move(file);
  tag_ = "[diskcache][jobid" + std::to_string(jobId) + "_SegmentFileV1]";
}

bool SegmentFileV1::create(std::shared_ptr<File> file, uint64_t content_file_size, uint64_t chunk_content_size,
                           int64_t job_id) {
  wisp::MutexLock lock(&mutex_);
  resetLocked(std::move(file), job_id);
  if (!file_ || content_file_size == 0 || chunk_content_size == 0 ||
      content_file_size >= kContentFileSizeLimit || chunk_content_size >= kContentFileSizeLimit) {
    DL_LOGW << tag_ << "[create]invalid content_file_size:" << content_file_size
            << ",chunk_content_size:" << chunk_content_size;
    return false;
  }
  if (!file_->canWrite()) {
    DL_LOGW << tag_ << "[create]file not open for writing:" << file_->path();
    return false;
  }
  DL_LOGD << tag_ << "[create]file created";

  uint64_t chunkCount = chunkCountFor(content_file_size, chunk_content_size);
  uint64_t bitmapSize = bitmapSizeFor(content_file_size, chunk_content_size);
  DL_LOGD << tag_ << "[create]bitmap:" << bitmapSize << ",chunk_count:" << chunkCount;
  if (bitmapSize == 0 || chunkCount == 0) return false;

  uint8_t header[kHeaderSize];
  header[kMagicOffset] = kMagic0;
  header[kMagicOffset + 1] = kMagic1;
  PutLittleEndian<uint16_t>(header + kVersionOffset, kVersion);
  PutLittleEndian<uint32_t>(header + kContentFileSizeOffset, static_cast<uint32_t>(content_file_size));
  PutLittleEndian<uint32_t>(header + kBitmapSizeOffset, static_cast<uint32_t>(bitmapSize));
  PutLittleEndian<uint32_t>(header + kChunkContentSizeOffset, static_cast<uint32_t>(chunk_content_size));
  if (file_->write(header, kHeaderSize, 0) != static_cast<int64_t>(kHeaderSize)) {
    DL_LOGW << tag_ << "[create]write header,fail";
    return false;
  }
  DL_LOGD << tag_ << "[create]write header";

  std::vector<uint8_t> bitmap(bitmapSize, 0);
  if (file_->write(bitmap.data(), bitmapSize, kHeaderSize) != static_cast<int64_t>(bitmapSize)) {
    DL_LOGW << tag_ << "[create]write bitmap,fail";
    return false;
  }
  DL_LOGD << tag_ << "[create]write bitmap";

  contentFileSize_ = content_file_size;
  bitmapSize_ = bitmapSize;
  chunkContentSize_ = chunk_content_size;
  chunkCount_ = chunkCount;
  bitmap_ = std::move(bitmap);
  isValid_ = true;
  DL_LOGD << tag_ << "[create]" << toStringLocked();
  return true;
}

bool SegmentFileV1::readHeaderLocked(uint64_t* contentFileSize, uint64_t* bitmapSize, uint64_t* chunkContentSize) {
  uint8_t header[kHeaderSize];
  if (file_->read(header, kHeaderSize, 0) != static_cast<int64_t>(kHeaderSize)) {
    DL_LOGW << tag_ << "[open]read header,fail";
    return false;
  }
  DL_LOGD << tag_ << "[open]read header";
  if (header[kMagicOffset] != kMagic0 || header[kMagicOffset + 1] != kMagic1) {
    DL_LOGW << tag_ << "[open]magic mismatch";
    return false;
  }
  DL_LOGD << tag_ << "[open]magic match";
  uint16_t version = GetLittleEndian<uint16_t>(header + kVersionOffset);
  if (version != kVersion) {
    DL_LOGW << tag_ << "[open]version mismatch:" << version;
    return false;
  }
  DL_LOGD << tag_ << "[open]version match";
  *contentFileSize = GetLittleEndian<uint32_t>(header + kContentFileSizeOffset);
  *bitmapSize = GetLittleEndian<uint32_t>(header + kBitmapSizeOffset);
  *chunkContentSize = GetLittleEndian<uint32_t>(header + kChunkContentSizeOffset);
  DL_LOGD << tag_ << "[open]read fize,content_file_size:" << *contentFileSize << ",bitmap_size:" << *bitmapSize
          << ",chunk_content_size:" << *chunkContentSize;
  return *contentFileSize > 0 && *bitmapSize > 0 && *chunkContentSize > 0;
}

bool SegmentFileV1::open(std::shared_ptr<File> file, int64_t job_id) {
  wisp::MutexLock lock(&mutex_);
  resetLocked(std::move(file), job_id);
  if (!file_ || !file_->canRead()) {
    DL_LOGW << tag_ << "[open]file not open for reading";
    return false;
  }
  DL_LOGD << tag_ << "[open]file opened";

  uint64_t contentFileSize = 0;
  uint64_t bitmapSize = 0;
  uint64_t chunkContentSize = 0;
  if (!readHeaderLocked(&contentFileSize, &bitmapSize, &chunkContentSize)) return false;
  if (bitmapSize != bitmapSizeFor(contentFileSize, chunkContentSize)) {
    DL_LOGW << tag_ << "[open]bitmap size mismatch:" << bitmapSize;
    return false;
  }
  DL_LOGD << tag_ << "[open]match bitmap size";

  // The header is untrusted: confirm the bitmap is really there before
  // allocating what it claims.
  uint64_t fileLength = 0;
  if (!file_->size(&fileLength) || fileLength < kHeaderSize + bitmapSize) {
    DL_LOGW << tag_ << "[open]read bitmap,fail,file length:" << fileLength;
    return false;
  }
  std::vector<uint8_t> bitmap(bitmapSize);
  if (file_->read(bitmap.data(), bitmapSize, kHeaderSize) != static_cast<int64_t>(bitmapSize)) {
    DL_LOGW << tag_ << "[open]read bitmap,fail";
    return false;
  }
  DL_LOGD << tag_ << "[open]read bitmap";

  uint64_t chunkCount = chunkCountFor(contentFileSize, chunkContentSize);
  if (chunkCount == 0 || chunkCount > bitmapSize * 8) {
    DL_LOGW << tag_ << "[open]chunk count mismatch:" << chunkCount;
    return false;
  }
  contentFileSize_ = contentFileSize;
  bitmapSize_ = bitmapSize;
  chunkContentSize_ = chunkContentSize;
  chunkCount_ = chunkCount;
  bitmap_ = std::move(bitmap);
  DL_LOGD << tag_ << "[open]already";
  isValid_ = true;
  DL_LOGD << tag_ << "[open]" << toStringLocked();
  return true;
}

uint64_t SegmentFileV1::positionOfLocked(uint64_t chunkIndex) const {
  return kHeaderSize + bitmapSize_ + chunkIndex * (chunkContentSize_ + kChecksumSize);
}

uint64_t SegmentFileV1::contentLengthOfLocked(uint64_t chunkIndex) const {
  if (chunkIndex + 1 < chunkCount_) return chunkContentSize_;
  return contentFileSize_ - chunkContentSize_ * chunkIndex;
}

bool SegmentFileV1::get_segment_chunk(uint64_t goff, SegmentChunk* chunk) {
  wisp::MutexLock lock(&mutex_);
  return locateLocked(goff, Lookup::kRefreshBitAndReadCrc, chunk);
}

bool SegmentFileV1::refreshed_chunk_at(uint64_t goff, SegmentChunk* chunk) {
  wisp::MutexLock lock(&mutex_);
  return locateLocked(goff, Lookup::kRefreshBit, chunk);
}

bool SegmentFileV1::chunk_at(uint64_t goff, SegmentChunk* chunk) {
  wisp::MutexLock lock(&mutex_);
  return locateLocked(goff, Lookup::kGeometry, chunk);
}

bool SegmentFileV1::locateLocked(uint64_t goff, Lookup lookup, SegmentChunk* chunk) {
  if (!isValid_ || goff >= contentFileSize_) return false;
  uint64_t index = goff / chunkContentSize_;
  if (index >= chunkCount_) return false;
  if (lookup != Lookup::kGeometry && !updateFillStateLocked(index)) return false;

  SegmentChunk found = describeLocked(index);
  if (lookup == Lookup::kRefreshBitAndReadCrc) {
    uint8_t crc[kChecksumSize];
    if (file_->read(crc, kChecksumSize, found.position + found.content_len) ==
        static_cast<int64_t>(kChecksumSize)) {
      found.crc = GetLittleEndian<uint32_t>(crc);
    }
    DL_LOGT << tag_ << "get_segment_chunk:" << found.to_string();
  }
  *chunk = found;
  return true;
}

SegmentChunk SegmentFileV1::describeLocked(uint64_t chunkIndex) const {
  SegmentChunk chunk;
  chunk.position = positionOfLocked(chunkIndex);
  chunk.offset = chunkContentSize_ * chunkIndex;
  chunk.chunk_index = chunkIndex;
  chunk.is_filled = isFilledLocked(chunkIndex);
  chunk.content_len = contentLengthOfLocked(chunkIndex);
  return chunk;
}

bool SegmentFileV1::refreshed_run(uint64_t goff, uint64_t len, std::vector<SegmentChunk>* chunks) {
  wisp::MutexLock lock(&mutex_);
  if (!isValid_ || len == 0 || goff % chunkContentSize_ != 0 || goff >= contentFileSize_ ||
      len > contentFileSize_ - goff) {
    return false;
  }
  uint64_t firstIndex = goff / chunkContentSize_;
  uint64_t lastIndex = (goff + len - 1) / chunkContentSize_;
  if (!refreshFillStatesLocked(firstIndex, lastIndex)) return false;
  chunks->clear();
  for (uint64_t index = firstIndex; index <= lastIndex; ++index) chunks->push_back(describeLocked(index));
  return true;
}

bool SegmentFileV1::commit_segment_chunk(SegmentChunk* chunk, uint32_t crc) {
  wisp::MutexLock lock(&mutex_);
  if (!isValid_) return false;
  uint64_t index = chunk->chunk_index;
  // Only a descriptor of this file may steer a write.
  if (index >= chunkCount_ || chunk->position != positionOfLocked(index) ||
      chunk->content_len != contentLengthOfLocked(index)) {
    DL_LOGW << tag_ << "commit segment,foreign chunk:" << chunk->to_string();
    return false;
  }
  DL_LOGT << tag_ << "commit segment,offset:" << chunk->offset << ",crc:" << crc;
  if (!setFillStateLocked(index, true)) return false;
  chunk->crc = crc;
  chunk->is_filled = true;
  return true;
}

bool SegmentFileV1::set_fill_state(uint64_t chunk_index, bool filled) {
  wisp::MutexLock lock(&mutex_);
  return setFillStateLocked(chunk_index, filled);
}

bool SegmentFileV1::setFillStateLocked(uint64_t chunkIndex, bool filled) {
  if (!isValid_ || chunkIndex / 8 >= bitmap_.size()) return false;
  // Start from the byte on disk, not the in-memory copy, so that bits another
  // object committed meanwhile are carried over rather than cleared.
  if (!updateFillStateLocked(chunkIndex)) return false;
  uint64_t byteIndex = chunkIndex / 8;
  uint8_t value = bitmap_[byteIndex];
  value = filled ? static_cast<uint8_t>(value | BitOf(chunkIndex)) : static_cast<uint8_t>(value & ~BitOf(chunkIndex));
  if (file_->write(&value, 1, kHeaderSize + byteIndex) != 1) {
    DL_LOGW << tag_ << "set fill state,fail,chunk:" << chunkIndex;
    return false;
  }
  bitmap_[byteIndex] = value;
  DL_LOGT << tag_ << "set fill state:" << chunkIndex << ",filled:" << filled;
  return true;
}

bool SegmentFileV1::update_fill_state(uint64_t chunk_index) {
  wisp::MutexLock lock(&mutex_);
  return updateFillStateLocked(chunk_index);
}

bool SegmentFileV1::updateFillStateLocked(uint64_t chunkIndex) {
  return refreshFillStatesLocked(chunkIndex, chunkIndex);
}

// The bits live on disk, where other objects of the same file commit theirs;
// the bytes read replace the in-memory copy.
bool SegmentFileV1::refreshFillStatesLocked(uint64_t firstIndex, uint64_t lastIndex) {
  if (!isValid_ || firstIndex > lastIndex || lastIndex / 8 >= bitmap_.size()) return false;
  uint64_t firstByte = firstIndex / 8;
  std::vector<uint8_t> onDisk(lastIndex / 8 - firstByte + 1);
  if (file_->read(onDisk.data(), onDisk.size(), kHeaderSize + firstByte) != static_cast<int64_t>(onDisk.size())) {
    DL_LOGW << tag_ << "update fill state,fail,chunk:" << firstIndex;
    return false;
  }
  for (size_t i = 0; i < onDisk.size(); ++i) {
    DL_LOGT << tag_ << "update fill state,from:" << static_cast<int>(bitmap_[firstByte + i])
            << ",to:" << static_cast<int>(onDisk[i]);
    bitmap_[firstByte + i] = onDisk[i];
  }
  return true;
}

bool SegmentFileV1::is_filled(uint64_t chunk_index) {
  wisp::MutexLock lock(&mutex_);
  return isValid_ && chunk_index < chunkCount_ && isFilledLocked(chunk_index);
}

bool SegmentFileV1::isFilledLocked(uint64_t chunkIndex) const {
  return (bitmap_[chunkIndex / 8] & BitOf(chunkIndex)) != 0;
}

bool SegmentFileV1::slot_on_disk(const SegmentChunk& chunk) {
  wisp::MutexLock lock(&mutex_);
  uint64_t fileLength = 0;
  return isValid_ && file_->size(&fileLength) && fileLength >= chunk.position + chunk.content_len;
}

uint64_t SegmentFileV1::continuous_filled_size() {
  wisp::MutexLock lock(&mutex_);
  if (!isValid_) return 0;
  uint64_t filledChunks = 0;
  for (uint8_t value : bitmap_) {
    if (value == 0xFF) {
      filledChunks += 8;
      continue;
    }
    filledChunks += LeadingOnes(value);
    break;
  }
  // Stray bits past the last chunk (only a foreign file has them) count nothing.
  if (filledChunks > chunkCount_) filledChunks = chunkCount_;
  return filledChunks * chunkContentSize_;
}

uint64_t SegmentFileV1::content_file_size() {
  wisp::MutexLock lock(&mutex_);
  return isValid_ ? contentFileSize_ : 0;
}

uint64_t SegmentFileV1::chunk_content_size() {
  wisp::MutexLock lock(&mutex_);
  return isValid_ ? chunkContentSize_ : 0;
}

uint64_t SegmentFileV1::chunk_count() {
  wisp::MutexLock lock(&mutex_);
  return isValid_ ? chunkCount_ : 0;
}

uint64_t SegmentFileV1::bitmap_size() {
  wisp::MutexLock lock(&mutex_);
  return isValid_ ? bitmapSize_ : 0;
}

bool SegmentFileV1::is_valid() {
  wisp::MutexLock lock(&mutex_);
  return isValid_;
}

std::string SegmentFileV1::path() {
  wisp::MutexLock lock(&mutex_);
  return file_ ? file_->path() : std::string();
}

std::string SegmentFileV1::to_string() {
  wisp::MutexLock lock(&mutex_);
  return toStringLocked();
}

std::string SegmentFileV1::toStringLocked() const {
  std::ostringstream out;
  out << "[v1]{is valid:" << (isValid_ ? 1 : 0) << ",content file size:" << contentFileSize_
      << ",bitmap size:" << bitmapSize_ << ",chunk content size:" << chunkContentSize_
      << ",chunk count:" << chunkCount_ << ",bitmap:0x";
  char hex[3];
  for (uint8_t value : bitmap_) {
    std::snprintf(hex, sizeof(hex), "%02x", value);
    out << hex;
  }
  out << "}";
  return out.str();
}

}  // namespace storage
}  // namespace downloader
