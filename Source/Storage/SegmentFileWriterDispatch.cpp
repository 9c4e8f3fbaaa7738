#include "Storage/SegmentFileWriterDispatch.h"

#include <cstring>

#include "Storage/SegmentFileWriter.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

// Enough for a few chunks in flight per download.
constexpr size_t kRetainedBufferBytes = 16 * 1024 * 1024;

}  // namespace

SegmentFileWriterDispatch& SegmentFileWriterDispatch::GetInstance() {
  return LibraryContext::Current().Get<SegmentFileWriterDispatch>();
}

SegmentFileWriterDispatch::SegmentFileWriterDispatch(LibraryContext& context)
    : buffers_(kRetainedBufferBytes), looper_("storage", context.clock()) {
  looper_.Start();
}

SegmentFileWriterDispatch::~SegmentFileWriterDispatch() { looper_.Stop(); }

void SegmentFileWriterDispatch::store(const std::shared_ptr<SegmentFileWriter>& writer, uint64_t goff,
                                      const uint8_t* data, uint64_t len) {
  if (len == 0 || !writer) return;
  std::shared_ptr<StoreBufferPool::Buffer> buffer = buffers_.Take(len);
  std::memcpy(buffer->bytes.get(), data, len);
  DL_LOGT << "[diskcache][writedispatch]copy_n:" << len;
  // Shares ownership of the pooled buffer: it returns to the pool when the
  // last cell holding its bytes is gone.
  std::shared_ptr<const uint8_t> bytes(buffer, buffer->bytes.get());
  looper_.Post([writer, goff, bytes, len] { handle_store(writer, goff, bytes, len); });
}

void SegmentFileWriterDispatch::complete(const std::shared_ptr<SegmentFileWriter>& writer,
                                         std::function<void()> done) {
  if (!writer) return;
  looper_.Post([writer, done] { handle_complete(writer, done); });
}

void SegmentFileWriterDispatch::handle_store(const std::shared_ptr<SegmentFileWriter>& writer, uint64_t goff,
                                             const std::shared_ptr<const uint8_t>& bytes, uint64_t len) {
  DL_LOGT << "[diskcache][writedispatch]handle store:" << goff << ",len:" << len;
  writer->store(goff, bytes, len);
}

void SegmentFileWriterDispatch::handle_complete(const std::shared_ptr<SegmentFileWriter>& writer,
                                                const std::function<void()>& done) {
  DL_LOGD << "[diskcache][writedispatch]handle complete";
  writer->complete();
  if (done) done();
}

}  // namespace storage
}  // namespace downloader
