#pragma once

// Names for clang's thread-safety attributes; other compilers see nothing. A forgotten lock is a
// build error in the clang build.
#if defined(__clang__)
#define CORVALINT_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define CORVALINT_THREAD_ATTRIBUTE(x)
#endif

#define CORVALINT_CAPABILITY(name) CORVALINT_THREAD_ATTRIBUTE(capability(name))
#define CORVALINT_SCOPED_CAPABILITY CORVALINT_THREAD_ATTRIBUTE(scoped_lockable)
#define CORVALINT_GUARDED_BY(lock) CORVALINT_THREAD_ATTRIBUTE(guarded_by(lock))
#define CORVALINT_REQUIRES(...) CORVALINT_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define CORVALINT_EXCLUDES(...) CORVALINT_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define CORVALINT_ACQUIRE(...) CORVALINT_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define CORVALINT_RELEASE(...) CORVALINT_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define CORVALINT_UNCHECKED_LOCKING CORVALINT_THREAD_ATTRIBUTE(no_thread_safety_analysis)
