// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Clang's thread-safety attributes (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html); nothing for other
/// compilers.
#if defined(__clang__)
#define EM_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define EM_THREAD_ATTRIBUTE(x)
#endif

#define EM_CAPABILITY(x) EM_THREAD_ATTRIBUTE(capability(x))
#define EM_SCOPED_CAPABILITY EM_THREAD_ATTRIBUTE(scoped_lockable)
#define EM_GUARDED_BY(x) EM_THREAD_ATTRIBUTE(guarded_by(x))
#define EM_REQUIRES(...) EM_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EM_ACQUIRE(...) EM_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define EM_TRY_ACQUIRE(...) EM_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define EM_RELEASE(...) EM_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define EM_NO_THREAD_SAFETY_ANALYSIS EM_THREAD_ATTRIBUTE(no_thread_safety_analysis)
