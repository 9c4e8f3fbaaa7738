// The queue in front of the segment file writers: one process-wide storage
// thread runs every writer's stores and completions in the order they were
// posted, so that a network thread hands its bytes over and never waits for
// the disk.
//
// `store` copies the caller's bytes before it returns, so the caller may
// reuse its buffer at once; the copies live in recycled buffers, which the
// writer's cells keep (rather than copying them again) until the cells are
// written. The writer is held by the posted job until the job has run.
//
// Thread rules: any thread. The storage thread is started on first use and
// lives as long as the library context that owns the dispatch: the process's
// own lives until the process ends (its thread is never joined: a DLL must not
// join threads while it is being unloaded); a test's context joins it.
//
// Edge cases: a store of 0 bytes posts nothing; `done` of `complete` runs on
// the storage thread after the writer's complete, and not at all if the
// process ends first.
#ifndef DOWNLOADER_STORAGE_SEGMENTFILEWRITERDISPATCH_H_
#define DOWNLOADER_STORAGE_SEGMENTFILEWRITERDISPATCH_H_

#include <cstdint>
#include <functional>
#include <memory>

#include "Storage/StoreBufferPool.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/looper/MessageLooper.h"

namespace downloader {
namespace storage {

class SegmentFileWriter;

class SegmentFileWriterDispatch {
 public:
  // The current library context's.
  static SegmentFileWriterDispatch& GetInstance();

  // Its jobs' delays fall due on the context's clock.
  explicit SegmentFileWriterDispatch(LibraryContext& context);
  // Drops the jobs not run yet and joins the storage thread.
  ~SegmentFileWriterDispatch();
  SegmentFileWriterDispatch(const SegmentFileWriterDispatch&) = delete;
  SegmentFileWriterDispatch& operator=(const SegmentFileWriterDispatch&) = delete;

  // `data[0]` is the byte at resource offset `goff`.
  void store(const std::shared_ptr<SegmentFileWriter>& writer, uint64_t goff, const uint8_t* data, uint64_t len);
  void complete(const std::shared_ptr<SegmentFileWriter>& writer, std::function<void()> done = nullptr);

 private:
  static void handle_store(const std::shared_ptr<SegmentFileWriter>& writer, uint64_t goff,
                           const std::shared_ptr<const uint8_t>& bytes, uint64_t len);
  static void handle_complete(const std::shared_ptr<SegmentFileWriter>& writer, const std::function<void()>& done);

  // Declared before the looper: pending jobs hold its buffers.
  StoreBufferPool buffers_;
  MessageLooper looper_;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTFILEWRITERDISPATCH_H_
