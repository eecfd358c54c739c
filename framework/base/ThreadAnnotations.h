// Clang's thread-safety attributes under our own names; empty for other compilers.
#ifndef FRAMEWORK_BASE_THREADANNOTATIONS_H
#define FRAMEWORK_BASE_THREADANNOTATIONS_H

#if defined(__clang__)
#define TEV_ATTRIBUTE(x) __attribute__((x))
#else
#define TEV_ATTRIBUTE(x)
#endif

#define TEV_CAPABILITY(x) TEV_ATTRIBUTE(capability(x))
#define TEV_SCOPED_CAPABILITY TEV_ATTRIBUTE(scoped_lockable)
#define TEV_GUARDED_BY(x) TEV_ATTRIBUTE(guarded_by(x))
#define TEV_REQUIRES(...) TEV_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TEV_ACQUIRE(...) TEV_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TEV_RELEASE(...) TEV_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TEV_EXCLUDES(...) TEV_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define TEV_NO_THREAD_SAFETY_ANALYSIS TEV_ATTRIBUTE(no_thread_safety_analysis)

#endif
