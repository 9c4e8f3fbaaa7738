// A stand-in for the closed XCDN engine: a module with the engine's name
// exporting its twelve C functions.
//
// - XCdnEngineInit(config, extra) remembers config and counts the calls;
//   returns 0.
// - XCdnEngineStart(a, b, c, d, last) returns a + b + c + d (so that a test
//   sees the arguments arrive unchanged); XCdnEngineStop(how) returns how.
// - XCdnCreateSource(path) returns a new source handle (from 1) serving that
//   file; XCdnOpenSource2 writes the file's size through its out pointer;
//   XCdnContentLength answers it; XCdnReadSource reads on from where the last
//   read ended, writing the count through its out pointer (0 at the end);
//   XCdnStopSource forgets the source. Unknown handles answer -2.
// - XCdnGetProp(handle, name, buffer, size) copies a text answer into buffer:
//   name "init-config" (the last configuration), "init-count", "last-flags"
//   (the flags of the last open). Returns 0, or 1 for an unknown name.
// - XCdnSetProp2(kFakeXcdnEmitBeam, measures, dimensions) sends one analytics
//   event (module "xcdn", monitor point "fake_point", the two lists as given,
//   char pointers) from a thread of the engine, and returns once it was
//   delivered. Other ids return 1.
// - XCdnSetQuillCallback(cb) sends cb the line "fake xcdn quill attached";
//   XCdnSetBeamCallback(cb) stores the event callback.
#ifndef TESTS_ENGINES_FAKEXCDNENGINE_H_
#define TESTS_ENGINES_FAKEXCDNENGINE_H_

#include <cstdint>

constexpr uint32_t kFakeXcdnEmitBeam = 1;

#endif  // TESTS_ENGINES_FAKEXCDNENGINE_H_
