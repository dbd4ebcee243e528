#pragma once

// Lock annotations. Only libc++ tells clang what a std::mutex is, and only when
// asked: everywhere else, in applications too, they are empty.
#if defined(__clang__) && defined(_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS)
#define MORVANE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define MORVANE_THREAD_ANNOTATION(x)
#endif

#define MORVANE_GUARDED_BY(x) MORVANE_THREAD_ANNOTATION(guarded_by(x))
#define MORVANE_PT_GUARDED_BY(x) MORVANE_THREAD_ANNOTATION(pt_guarded_by(x))
#define MORVANE_REQUIRES(...) MORVANE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define MORVANE_NO_THREAD_SAFETY_ANALYSIS MORVANE_THREAD_ANNOTATION(no_thread_safety_analysis)
