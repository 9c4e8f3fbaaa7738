// What the `kind` argument of the PCDN read callback means. The engine calls
// the callback with a run of data pieces in offset order, then exactly one
// end notice: kPcdnReadDone when the asked range was delivered whole, or
// kPcdnReadError with a negative `code` (and text in `info`) when it was not.
// Closing the download ends the run without a notice.
//
// For data pieces `offset` is the piece's position in the resource, `length`
// its size and `total` the resource's size; for notices `offset` is where
// delivery stopped. A callback that returns non-zero asks the engine to stop
// delivering this read; no notice follows.
#ifndef DOWNLOADER_STREAM_PCDNREADEVENT_H_
#define DOWNLOADER_STREAM_PCDNREADEVENT_H_

namespace downloader {

enum PcdnReadKind : int {
  kPcdnReadData = 0,
  kPcdnReadDone = 1,
  kPcdnReadError = 2,
};

}  // namespace downloader

#endif  // DOWNLOADER_STREAM_PCDNREADEVENT_H_
