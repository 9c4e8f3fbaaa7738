// A stand-in for the closed PCDN engine, for tests and for dlplay's
// --engine. It exports the engine's C functions (and "PCDNNGGet", so that a
// test can show it is never called) from a module with the engine's name.
//
// Serving: PCDNOpen returns a new download id (from 1). PCDNRead(id, mode,
// url, start, end, params, callback) serves the bytes [start, end] (end
// inclusive; a negative end means to the end of the file) of the file
// "fake-root" + the URL's path (the text after scheme and host, without the
// query), on a thread of the session, in pieces of "fake-piece-size" bytes,
// then one end notice (Source/Stream/PcdnReadEvent.h). A new read on the same
// id first stops the previous one. PCDNRead returns -1 for an id that is not
// open, otherwise "fake-read-result" (default 0). PCDNClose stops the
// delivery and returns 0 (-1 for an id that is not open). Do not close a
// download from inside its own callback.
//
// Script keys, set through PCDNSetByKV(key, value):
//   "fake-root"         folder of the served files;
//   "fake-piece-size"   bytes per data piece (default 65536);
//   "fake-fail-open"    the next N opens return -1;
//   "fake-fail-after"   reads deliver this many bytes, then an error notice
//                       with code "fake-fail-code" (default -1001); -1 clears;
//   "fake-stall-after"  reads deliver this many bytes, then nothing until the
//                       download is closed; -1 clears;
//   "fake-read-result"  the value PCDNRead returns for an open id;
//   "fake-late-callbacks" N: PCDNClose returns at once and the closed
//                       download goes on for up to N data callbacks (a
//                       stalled one resumes), as an engine whose callbacks
//                       race its close; "fake-reset" ends them;
//   "fake-reply:K"      the answer of PCDNGet(K, ...) and PCDNGetByKV(K, ...);
//   "fake-reply:K:A"    the answer of PCDNGetByKV(K, A, ...), before the above;
//   "fake-reset"        forgets every script key.
// Queries through PCDNGet(key, buffer, size):
//   "total-download-details-bytes-vod"  {"total":N}, N the bytes delivered;
//   "fake-last-read-url"                the URL of the last PCDNRead;
//   "fake-last-meta"                    "id,int,long,float,text,flag" of the
//                                       last PCDNSetMeta;
//   "fake-late-callbacks-made"          data callbacks made after a close;
//   "fake-stalled"                      deliveries waiting in a stall now;
//   "fake-calls:NAME"                   how often NAME was called.
// Answers are copied into the caller's buffer (cut to size - 1 bytes and
// NUL-terminated) and the buffer is returned; null for an unknown key.
// PCDNSetTraceCallback stores the callback, sends it the line
// "fake pcdn trace attached" (level 2) and returns 0.
//
// The variant built without "PCDNSetMeta" behaves the same otherwise.
#ifndef TESTS_ENGINES_FAKEPCDNENGINE_H_
#define TESTS_ENGINES_FAKEPCDNENGINE_H_

#include <cstdint>
#include <string>

#include <downloader/Stream/PcdnInterfaceHelper.h>

extern "C" {

int64_t PCDNOpen(const char* resource, int mode, const char* params);
int PCDNRead(int64_t id, int mode, const char* url, int64_t rangeStart, int64_t rangeEnd, const char* params,
             PCDNReadCallback callback);
const char* PCDNGet(const char* key, char* buffer, int size);
int PCDNSetByKV(const char* key, const char* value);
const char* PCDNGetByKV(const char* key, const char* argument, char* buffer, int size);
int PCDNSetMeta(int64_t id, int intValue, int64_t longValue, float floatValue, const char* text, int flag);
int PCDNClose(int64_t id);
int64_t PCDNSetTraceCallback(PCDNTraceCallback callback);
const char* PCDNNGGet(const char* key, const char* argument, char* buffer, int size);

}  // extern "C"

namespace fake_engine {

// Shared by the engine's translation units.
void CountCall(const char* name);
void RecordMeta(const char* line);
// Copies `answer` into the caller's buffer the way every query does.
const char* Answer(const std::string& answer, char* buffer, int size);

}  // namespace fake_engine

#endif  // TESTS_ENGINES_FAKEPCDNENGINE_H_
