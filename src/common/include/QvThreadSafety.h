// Clang's thread-safety attributes: what a lock guards, and which functions need it held,
// so that the compiler checks every access (clang -Wthread-safety). Other compilers see
// nothing.
#pragma once

#if defined(__clang__)
#define QV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QV_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) QV_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY QV_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) QV_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) QV_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) QV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define REQUIRES(...) QV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) QV_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define ACQUIRE(...) QV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) QV_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) QV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) QV_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define EXCLUDES(...) QV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) QV_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS QV_THREAD_ANNOTATION(no_thread_safety_analysis)
