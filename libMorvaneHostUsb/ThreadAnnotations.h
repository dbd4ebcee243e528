#pragma once

// Lock annotations, checked by clang's -Wthread-safety and empty elsewhere.
#if defined(__clang__)
#define MORVANE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define MORVANE_THREAD_ANNOTATION(x)
#endif

#define GUARDED_BY(x) MORVANE_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) MORVANE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) MORVANE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS MORVANE_THREAD_ANNOTATION(no_thread_safety_analysis)
