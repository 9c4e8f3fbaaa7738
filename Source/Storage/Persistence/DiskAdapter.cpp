#include "Storage/Persistence/DiskAdapter.h"

#include <algorithm>
#include <vector>

#include "Storage/ByteOrder.h"
#include "Storage/Persistence/DiskCacheEntry.h"
#include "Storage/Persistence/File.h"
#include "Storage/SegmentChunk.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {

DiskAdapter::DiskAdapter(const std::string& path, uint64_t fileSize, int64_t jobId,
                         platform::FileSystem* fileSystem)
    : path_(path),
      tag_("[diskcache][JobId" + std::to_string(jobId) + "_DiskAdapter]"),
      file_(std::make_shared<File>(path, fileSystem, jobId)) {
  if (file_->openExisting() && segmentFile_.open(file_, jobId)) {
    DL_LOGD << tag_ << "reopen file:" << path_;
  } else {
    DL_LOGD << tag_ << "failed to open file,create:" << path_ << ",file_size:" << fileSize;
    bool storable = fileSize > 0 && fileSize < SegmentFileV1::kContentFileSizeLimit;
    if (storable) {
      file_->close();
      if (file_->create()) {
        segmentFile_.create(file_, fileSize, SegmentFileV1::kDefaultChunkContentSize, jobId);
      }
    }
  }
  if (segmentFile_.is_valid()) {
    intercept_ = std::make_unique<DiskAdapterIntercept>(&segmentFile_, jobId);
    SegmentChunk last;
    if (segmentFile_.chunk_at(segmentFile_.content_file_size() - 1, &last)) {
      layoutEnd_ = last.position + last.content_len + SegmentFileV1::kChecksumSize;
    }
  } else {
    DL_LOGW << tag_ << "invalid segment file:" << path_;
  }
}

DiskAdapter::~DiskAdapter() { file_->close(); }

int64_t DiskAdapter::write(const uint8_t* data, uint64_t len, uint64_t goff) {
  platform::WritePart content{data, static_cast<size_t>(len)};
  return writeParts(&content, 1, goff);
}

int64_t DiskAdapter::writeParts(const platform::WritePart* parts, size_t count, uint64_t goff) {
  if (!intercept_) return -1;
  uint64_t len = 0;
  for (size_t index = 0; index < count; ++index) len += parts[index].length;
  uint32_t crc = intercept_->checksumOf(parts, count);
  int64_t position = intercept_->before_write(crc, goff, len);
  if (position < 0) return -1;
  // The checksum sits right behind the content in the slot, so both go out
  // in one write. after_write sets the bit only once that write has returned
  // whole: a process that dies during it, or a write that lands in part,
  // leaves the bit clear, so a set bit always has content and checksum on
  // disk before it.
  uint8_t encodedCrc[SegmentFileV1::kChecksumSize];
  PutLittleEndian<uint32_t>(encodedCrc, crc);
  std::vector<platform::WritePart> slot(parts, parts + count);
  slot.push_back(platform::WritePart{encodedCrc, sizeof(encodedCrc)});
  reserveAhead(static_cast<uint64_t>(position), len + sizeof(encodedCrc));
  int64_t written = file_->writeGather(slot.data(), slot.size(), static_cast<uint64_t>(position));
  int64_t contentWritten = written < 0 ? written : written - static_cast<int64_t>(sizeof(encodedCrc));
  if (!intercept_->after_write(crc, goff, len, contentWritten)) return -1;
  return contentWritten;
}

void DiskAdapter::reserveAhead(uint64_t position, uint64_t length) {
  uint64_t end = position + length;
  if (end <= reservedEnd_.load(std::memory_order_relaxed) || position >= layoutEnd_) return;
  uint64_t until = std::min(layoutEnd_, std::max(end, position + kReserveAhead));
  reservedEnd_.store(until, std::memory_order_relaxed);
  // Refused room (a full disk) is no failure here: the write says for itself
  // whether its bytes fit.
  file_->reserve(position, until - position);
}

int64_t DiskAdapter::read(uint8_t* data, uint64_t len, uint64_t goff) {
  if (!intercept_) return -1;
  int64_t position = intercept_->before_read(goff, len);
  if (position < 0) return -1;
  int64_t bytesRead = file_->read(data, len, static_cast<uint64_t>(position));
  if (!intercept_->after_read(data, goff, len, bytesRead)) return -1;
  return bytesRead;
}

int64_t DiskAdapter::readRun(uint8_t* data, uint64_t len, uint64_t goff) {
  std::vector<SegmentChunk> chunks;
  if (!intercept_ || !intercept_->before_read_run(goff, len, &chunks)) return -1;
  // Slots lie back to back, each a content with its checksum right behind:
  // one scattered read puts every content in place and every checksum aside.
  std::vector<uint8_t> checksumBytes(chunks.size() * SegmentFileV1::kChecksumSize);
  std::vector<platform::ReadSlice> slices;
  slices.reserve(2 * chunks.size());
  for (size_t i = 0; i < chunks.size(); ++i) {
    slices.push_back({data + (chunks[i].offset - goff), static_cast<size_t>(chunks[i].content_len)});
    slices.push_back({checksumBytes.data() + i * SegmentFileV1::kChecksumSize, SegmentFileV1::kChecksumSize});
  }
  int64_t bytesRead = file_->readScattered(slices, chunks.front().position);
  std::vector<uint32_t> storedChecksums(chunks.size(), 0);
  int64_t contentRead = bytesRead < 0 ? bytesRead : 0;
  uint64_t unparsed = bytesRead < 0 ? 0 : static_cast<uint64_t>(bytesRead);
  for (size_t i = 0; i < chunks.size() && unparsed > 0; ++i) {
    uint64_t content = std::min<uint64_t>(unparsed, chunks[i].content_len);
    contentRead += static_cast<int64_t>(content);
    unparsed -= content;
    // A checksum cut short by the end of the file reads as 0, as a single
    // chunk's does: the file's last chunk is then still served.
    if (unparsed < SegmentFileV1::kChecksumSize) break;
    storedChecksums[i] = GetLittleEndian<uint32_t>(checksumBytes.data() + i * SegmentFileV1::kChecksumSize);
    unparsed -= SegmentFileV1::kChecksumSize;
  }
  if (!intercept_->after_read_run(data, goff, len, contentRead, chunks, storedChecksums)) return -1;
  return static_cast<int64_t>(len);
}

bool DiskAdapter::writeCache(const DiskCacheEntry& entry) {
  DL_LOGT << tag_ << "writeCache,entry size:" << entry.size();
  std::vector<platform::WritePart> parts;
  for (const auto& goffAndCell : entry.cells()) {
    const DataCell& cell = goffAndCell.second;
    parts.clear();
    for (const CellPiece& piece : cell.pieces) {
      parts.push_back(platform::WritePart{piece.bytes.get(), static_cast<size_t>(piece.length)});
    }
    if (writeParts(parts.data(), parts.size(), cell.goff) < 0) {
      DL_LOGD << tag_ << "writeCache,fail,goff:" << cell.goff << ",len:" << cell.len;
      return false;
    }
  }
  DL_LOGT << tag_ << "writeCache,success";
  return true;
}

}  // namespace storage
}  // namespace downloader
