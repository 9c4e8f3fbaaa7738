// Attributes for clang's thread-safety analysis (-Wthread-safety): they let the
// compiler check which mutex guards a member and which functions expect it
// held. Other compilers (gcc, mingw-w64) see them as nothing.
//
// A host that defines macros of the same names keeps its own definitions.
#ifndef WISP_THREADANNOTATIONS_H_
#define WISP_THREADANNOTATIONS_H_

#if defined(__clang__) && defined(__has_attribute)
#if __has_attribute(guarded_by)
#define WISP_THREAD_ANNOTATION_(x) __attribute__((x))
#endif
#endif
#ifndef WISP_THREAD_ANNOTATION_
#define WISP_THREAD_ANNOTATION_(x)
#endif

#ifndef CAPABILITY
#define CAPABILITY(x) WISP_THREAD_ANNOTATION_(capability(x))
#endif
#ifndef SCOPED_CAPABILITY
#define SCOPED_CAPABILITY WISP_THREAD_ANNOTATION_(scoped_lockable)
#endif
#ifndef GUARDED_BY
#define GUARDED_BY(x) WISP_THREAD_ANNOTATION_(guarded_by(x))
#endif
#ifndef PT_GUARDED_BY
#define PT_GUARDED_BY(x) WISP_THREAD_ANNOTATION_(pt_guarded_by(x))
#endif
#ifndef REQUIRES
#define REQUIRES(...) WISP_THREAD_ANNOTATION_(requires_capability(__VA_ARGS__))
#endif
#ifndef EXCLUDES
#define EXCLUDES(...) WISP_THREAD_ANNOTATION_(locks_excluded(__VA_ARGS__))
#endif
#ifndef ACQUIRE
#define ACQUIRE(...) WISP_THREAD_ANNOTATION_(acquire_capability(__VA_ARGS__))
#endif
#ifndef RELEASE
#define RELEASE(...) WISP_THREAD_ANNOTATION_(release_capability(__VA_ARGS__))
#endif
#ifndef ASSERT_CAPABILITY
#define ASSERT_CAPABILITY(x) WISP_THREAD_ANNOTATION_(assert_capability(x))
#endif
#ifndef NO_THREAD_SAFETY_ANALYSIS
#define NO_THREAD_SAFETY_ANALYSIS WISP_THREAD_ANNOTATION_(no_thread_safety_analysis)
#endif

#endif  // WISP_THREADANNOTATIONS_H_
