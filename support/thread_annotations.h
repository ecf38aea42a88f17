#pragma once

// Lock annotations, checked by a clang build with -Wthread-safety and empty elsewhere.
#if defined(__clang__)
#define MO_ANNOTATE(x) __attribute__((x))
#else
#define MO_ANNOTATE(x)
#endif

#define MO_CAPABILITY(kind) MO_ANNOTATE(capability(kind))
#define MO_SCOPED_CAPABILITY MO_ANNOTATE(scoped_lockable)
#define MO_GUARDED_BY(lock) MO_ANNOTATE(guarded_by(lock))
#define MO_PT_GUARDED_BY(lock) MO_ANNOTATE(pt_guarded_by(lock))
#define MO_REQUIRES(...) MO_ANNOTATE(requires_capability(__VA_ARGS__))
#define MO_EXCLUDES(...) MO_ANNOTATE(locks_excluded(__VA_ARGS__))
#define MO_ACQUIRE(...) MO_ANNOTATE(acquire_capability(__VA_ARGS__))
#define MO_TRY_ACQUIRE(...) MO_ANNOTATE(try_acquire_capability(__VA_ARGS__))
#define MO_RELEASE(...) MO_ANNOTATE(release_capability(__VA_ARGS__))
#define MO_ACQUIRED_BEFORE(...) MO_ANNOTATE(acquired_before(__VA_ARGS__))
#define MO_ACQUIRED_AFTER(...) MO_ANNOTATE(acquired_after(__VA_ARGS__))
#define MO_RETURN_CAPABILITY(lock) MO_ANNOTATE(lock_returned(lock))
#define MO_NO_THREAD_SAFETY_ANALYSIS MO_ANNOTATE(no_thread_safety_analysis)
