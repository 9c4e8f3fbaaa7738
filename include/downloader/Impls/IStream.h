// A player's byte stream of one media resource, handed out by a tunnel
// (ITunnel::Acquire) or a pipeline (DownloadPipeline::AcquireStream).
//
// Life: acquired -> wired by the pipeline and the tunnel (the Set* calls) ->
// Open, or OpenAsync then IsOpenReady until it stops answering
// kDLOpenPending -> Read/Seek any number of times -> Close -> released.
//
// Thread rules: one player thread opens, reads, seeks and closes. The tunnel
// calls OnBufferStateUpdated, OnStreamingStateUpdated, OnPulseDataUpdated
// and GetParam from its own threads at any time; those only store or read
// values. The Set* wiring calls happen before Open.
//
// Edge cases:
// - Read returns (0, n > 0) bytes, (0, 0) "nothing yet, read again", (5, 0)
//   at the end of the data, (1, sub-code) a failure the stream could not
//   recover from by changing its level.
// - Read, Seek or GetFileSize before a successful open fail without
//   blocking; Close may be called in any state and more than once.
// - Read or Seek during an asynchronous open wait for the open to finish.
// - GetInfo of an unknown key answers "" (or the executor's answer).
#ifndef DOWNLOADER_IMPLS_ISTREAM_H_
#define DOWNLOADER_IMPLS_ISTREAM_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/DLResultCode.h>
#include <downloader/Base/URI.h>
#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/IReporter.h>
#include <downloader/Pipe/PlayerState.h>
#include <downloader/Pipe/PulseDataDef.h>

namespace downloader {

class DownloadPipeline;
class ITunnel;
class PlayStateMonitor;

// IsOpenReady's answer while an asynchronous open is still running.
constexpr int32_t kDLOpenPending = 2;

class DOWNLOADER_EXPORT IStream {
 public:
  IStream();
  IStream(const IStream&) = delete;
  IStream& operator=(const IStream&) = delete;
  virtual ~IStream();

  virtual DLResultCode Open(const std::shared_ptr<URI>& uri) = 0;
  // Starts the open and returns at once; IsOpenReady reports its outcome.
  virtual DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) = 0;
  // kDLOpenPending while the open runs, then what Open would have answered.
  virtual DLResultCode IsOpenReady() = 0;
  virtual DLReadResult Read(void* buffer, uint64_t size) = 0;
  virtual DLResultCode Seek(int64_t offset) = 0;
  // The whole resource's size; 0 while unknown.
  virtual int64_t GetFileSize() = 0;
  virtual DLResultCode Close() = 0;
  virtual void OnBufferStateUpdated(BufferState state) = 0;
  virtual void OnStreamingStateUpdated(StreamingState state) = 0;
  virtual void OnPulseDataUpdated(const PulseData& data) = 0;
  virtual std::string GetInfo(const std::string& key) = 0;
  // A request parameter ("" when absent): the tunnel's stream settings,
  // overridden by the parameters of the URI being read.
  virtual std::string GetParam(const std::string& key) = 0;

  // Wiring, before Open.
  virtual void SetConfigure(ConfigPtr config) = 0;
  virtual void SetReporter(std::shared_ptr<protocols::IReporter> reporter) = 0;
  // Not owned: whoever wires the stream keeps the pipeline alive longer.
  virtual void SetPipeline(DownloadPipeline* pipeline) = 0;
  virtual void SetTunnel(std::shared_ptr<ITunnel> tunnel) = 0;
  // Parameters every request of this stream carries unless its URI says
  // otherwise.
  virtual void SetStreamSettings(const StreamParams& settings) = 0;
  virtual void SetPulseConsumer(std::shared_ptr<PlayStateMonitor> monitor) = 0;
  virtual void SetSequence(uint64_t sequence) = 0;
  virtual uint64_t GetSequence() = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_IMPLS_ISTREAM_H_
