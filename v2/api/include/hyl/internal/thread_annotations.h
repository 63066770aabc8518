// SPDX-License-Identifier: Apache-2.0
#pragma once

// Names for Clang's thread-safety attributes; nothing with other compilers. For the library's own
// headers only: the public ones do not include this.
#if defined(__clang__)
#define HYL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define HYL_THREAD_ATTRIBUTE(x)
#endif

#define HYL_GUARDED_BY(mutex) HYL_THREAD_ATTRIBUTE(guarded_by(mutex))
#define HYL_REQUIRES(mutex) HYL_THREAD_ATTRIBUTE(requires_capability(mutex))
#define HYL_EXCLUDES(mutex) HYL_THREAD_ATTRIBUTE(locks_excluded(mutex))
#define HYL_RETURN_CAPABILITY(mutex) HYL_THREAD_ATTRIBUTE(lock_returned(mutex))
#define HYL_NO_THREAD_SAFETY_ANALYSIS HYL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
#define HYL_ACQUIRED_BEFORE(mutex) HYL_THREAD_ATTRIBUTE(acquired_before(mutex))
